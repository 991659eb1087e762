/* SPDX-License-Identifier: Apache-2.0
 *
 * The least that a server can do for what the daemon promises: one exchange on the bus, one
 * SHA-512, one file, one thread for each Log, and the same lines to syslog, opened and closed
 * around each. It looks at nothing, decides nothing and reports no failure. Measured beside the
 * daemon.
 */
#define _GNU_SOURCE
#include <openssl/evp.h>
#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

static pthread_attr_t detached;

__attribute__((format(printf, 1, 2))) static void debug_line(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    openlog("tavrisk", LOG_PID | LOG_NOWAIT, LOG_DAEMON);
    vsyslog(LOG_DEBUG, format, arguments);
    closelog();
    va_end(arguments);
}

static int keep(const char* path, const void* data, size_t size) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        return 1;
    }
    const int result = write(file, data, size) == (ssize_t)size ? 0 : 1;
    close(file);
    chmod(path, 0774);
    return result;
}

static void sha512_text(const void* data, size_t size, char* text) {
    unsigned char digest[64] = {0};
    debug_line("%s: Message: %s", "SignIt", "512 INIT");
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha512(), NULL);
    debug_line("%s: Message: %s", "SignIt", "512 UPDATE");
    EVP_DigestUpdate(context, data, size);
    debug_line("%s: Message: %s", "SignIt", "512 FINAL");
    EVP_DigestFinal_ex(context, digest, NULL);
    EVP_MD_CTX_free(context);
    debug_line("%s: SignIt: (%s)", "SignIt", "Memcpy");
    for (size_t i = 0; i < sizeof digest; ++i) {
        text[2 * i] = "0123456789abcdef"[digest[i] >> 4];
        text[2 * i + 1] = "0123456789abcdef"[digest[i] & 15];
    }
    text[2 * sizeof digest] = '\0';
    debug_line("%s: SignIt: (%s): (%s)", "SignIt", "Done", text);
}

static int is_digest_of(const char* given, const void* data, size_t size) {
    char text[129];
    sha512_text(data, size, text);
    debug_line("%s: bufferh: %s", "validateBuffer", given);
    debug_line("%s: calculated hash  %s", "validateBuffer", text);
    if (strncmp(given, text, 128) != 0) {
        return 0;
    }
    debug_line("%s: Hashes match", "validateBuffer");
    return 1;
}

static void* work(void* record) {
    debug_line("%s:  parsing JSON", "checkRedfishData");
    debug_line("%s: Entry parsing JSON", "checkRedfishData");
    free(record);
    debug_line("%s(): entering.\n", "tavrisk_generate_event");
    debug_line("Log the event.\n");
    debug_line("ZEL event submitted successfully");
    debug_line("Event raise successfully: [%s], status: [%d]", "HMC0005", 0);
    debug_line("The %s upper warning threshold has been exceeded.", "GPU0");
    debug_line("Event logged for event = %d , rc = %d\n", 5, 0);
    return NULL;
}

static int start_worker(const void* data, size_t size) {
    void* record = malloc(size);
    pthread_t thread;
    memcpy(record, data, size);
    return pthread_create(&thread, &detached, work, record) == 0 ? 0 : 1;
}

static int take_in(const char* name, const void* data, size_t size) {
    char path[256];
    if (*name == '\0' || size == 0) {
        return 2;
    }
    if (!is_digest_of(name, data, size)) {
        return 1;
    }
    snprintf(path, sizeof path, "/var/run/hmc/%s.%lld", name, (long long)time(NULL));
    const int kept = keep(path, data, size);
    return start_worker(data, size) == 0 ? kept : 1;
}

static int save(const char* name, const void* data, size_t size) {
    char path[512];
    snprintf(path, sizeof path, "/var/run/hmc/dump/%s", name);
    return keep(path, data, size);
}

static int echo(const char* name, const void* data, size_t size) {
    (void)name;
    (void)data;
    (void)size;
    return 0;
}

static int answer(sd_bus_message* call, int (*operation)(const char*, const void*, size_t)) {
    const char* name = NULL;
    const void* data = NULL;
    size_t size = 0;
    int result = sd_bus_message_read_basic(call, 's', &name);
    if (result >= 0) {
        result = sd_bus_message_read_array(call, 'y', &data, &size);
    }
    return result < 0 ? result : sd_bus_reply_method_return(call, "i", operation(name, data, size));
}

static int on_echo(sd_bus_message* call, void* context, sd_bus_error* error) {
    (void)context;
    (void)error;
    return answer(call, echo);
}

static int on_save(sd_bus_message* call, void* context, sd_bus_error* error) {
    (void)context;
    (void)error;
    return answer(call, save);
}

static int on_log(sd_bus_message* call, void* context, sd_bus_error* error) {
    (void)context;
    (void)error;
    return answer(call, take_in);
}

static const sd_bus_vtable members[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Echo", "say", "i", on_echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Save", "say", "i", on_save, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Log", "say", "i", on_log, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int main(void) {
    sd_bus* bus = NULL;
    pthread_attr_init(&detached);
    pthread_attr_setstacksize(&detached, 1 << 20);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    if (sd_bus_default(&bus) < 0 ||
        sd_bus_add_object_vtable(bus, NULL, "/com/vorn/bmc/tavrisk", "com.vorn.bmc.tavrisk",
                                 members, NULL) < 0 ||
        sd_bus_request_name(bus, "com.vorn.bmc.limit", 0) < 0) {
        return EXIT_FAILURE;
    }
    for (;;) {
        const int result = sd_bus_process(bus, NULL);
        if (result < 0 || (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) {
            return EXIT_FAILURE;
        }
    }
}
