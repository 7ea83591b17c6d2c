// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TestDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

TestDirectory::TestDirectory() : mPath("/tmp/lum-test-XXXXXX") {
    if (mkdtemp(mPath.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    setenv("LUM_BINDER_DIR", mPath.c_str(), 1);
}

TestDirectory::~TestDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}
