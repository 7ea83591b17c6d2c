// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/sdfctl/Arguments.h"
#include "tools/sdfctl/Session.h"

// Declares its arguments, which are filled when they are read.
void declareDoctor(Arguments& arguments, bool& json, double& timeout);

// "sdfctl doctor": says what stands between the user and a working service, step by step. words:
// its arguments; settings: those of sdfctl itself. Returns the exit status, as its help lists them.
// Throws Interrupted.
int runDoctor(const std::vector<std::string>& words, Settings settings);
