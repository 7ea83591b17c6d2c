// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// Points this process and its children at an empty socket directory of their own, which the
// destructor removes. To be made before the first use of the binder runtime, and before other
// threads.
class TestDirectory {
  public:
    TestDirectory();
    ~TestDirectory();
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};
