// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk {

/**
 * Carries an exception over C stack frames: libsystemd calls our callbacks, and an exception that
 * unwound through its frames would leave the bus object inconsistent. A callback hands the
 * exception in flight to carryException() and returns normally; whoever called into libsystemd
 * calls rethrowCarriedException() when that call is back. Both on the same thread.
 *
 * When a second exception is carried before the first was rethrown, the first is kept.
 */
void carryException() noexcept;

/** Rethrows the carried exception, if there is one, and forgets it. */
void rethrowCarriedException();

/** Forgets the carried exception: the call into libsystemd has failed as well, and the two count as
 *  one failure. */
void dropCarriedException() noexcept;

} // namespace tavrisk
