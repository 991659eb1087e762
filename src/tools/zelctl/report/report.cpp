// SPDX-License-Identifier: Apache-2.0
#include "tools/common/draft.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/report/bundle.hpp"
#include "tools/zelctl/report/page.hpp"
#include "tools/zelctl/report/spool.hpp"

#include <filesystem>
#include <optional>
#include <system_error>

namespace tavrisk::tools {
namespace {

/** Where the file is, by whichever name. */
std::filesystem::path canonicalPath(const std::filesystem::path& file) {
    std::error_code unknown; // told when it is opened
    return std::filesystem::weakly_canonical(file.has_parent_path() ? file.parent_path() : ".",
                                             unknown) /
           file.filename();
}

void check(const std::optional<std::string>& page, const std::optional<std::string>& bundle) {
    if (!page && !bundle) {
        failUsage(
            "report needs --to=FILE.html, --bundle=FILE.tar.gz or both; - is standard output");
    }
    if (page.value_or("?").empty() || bundle.value_or("?").empty() ||
        (page && bundle && canonicalPath(*page) == canonicalPath(*bundle))) {
        failUsage("--to and --bundle need a FILE each");
    }
}

Shown writePage(const std::string& path, const Log& log, const Arguments& arguments) {
    Draft draft{path};
    Html html{[&draft](std::string_view bytes) { draft.write(bytes); }};
    auto shown = putPage(html, log, arguments);
    draft.finish();
    return shown;
}

/** And the page by itself, where it is asked for. */
Shown writeBundle(const std::string& path, const std::optional<std::string>& pagePath,
                  const Log& log, const Arguments& arguments) {
    Draft bundle{path};
    Spool page{path};
    std::optional<Draft> draft;
    if (pagePath) {
        draft.emplace(*pagePath);
    }
    Html html{[&page, &draft](std::string_view bytes) {
        page.write(bytes);
        if (draft) {
            draft->write(bytes);
        }
    }};
    auto shown = putPage(html, log, arguments);
    pack({path, bundle.descriptor()}, page, shown, log, arguments);
    bundle.finish();
    if (draft) {
        draft->finish();
    }
    return shown;
}

} // namespace

Exit report(const Log& log, const Arguments& arguments) {
    const auto page = arguments.value("to");
    const auto bundle = arguments.value("bundle");
    check(page, bundle);
    filterOf(arguments); // What is wrong with it is told before there is a file.
    limitOf(arguments);
    const auto shown =
        bundle ? writeBundle(*bundle, page, log, arguments) : writePage(*page, log, arguments);
    if (!shown.problem.empty()) {
        throw Failure{Exit::failed, "written without what cannot be read: " + shown.problem};
    }
    return Exit::done;
}

} // namespace tavrisk::tools
