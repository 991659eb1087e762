// SPDX-License-Identifier: Apache-2.0
#include "retention/child_runner.hpp"
