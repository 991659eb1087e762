// SPDX-License-Identifier: Apache-2.0
#include "cper/record_parser.hpp"
