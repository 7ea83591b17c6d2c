// SPDX-License-Identifier: Apache-2.0
// What most test programs include, compiled once for all of them. Each test still includes what it
// uses: the clang configuration is built without this.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>
