// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/sdfctl/Session.h"

// "sdfctl doctor": tells what stands between the user and a working service, step by step. words:
// its arguments; settings: those of sdfctl itself. Returns the exit status, as its help lists them.
// Throws Interrupted.
int runDoctor(std::vector<std::string> words, Settings settings);
