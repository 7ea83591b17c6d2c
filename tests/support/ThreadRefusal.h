// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdlib>

// While it lives, no thread can be made in this process: pthread_create fails with EAGAIN, because
// the default stack is larger than the address space.
class ThreadRefusal {
  public:
    ThreadRefusal() {
        pthread_attr_t huge;
        if (pthread_getattr_default_np(&mBefore) != 0 || pthread_attr_init(&huge) != 0 ||
            pthread_attr_setstacksize(&huge, sizeof(void*) == 8 ? size_t{1} << 47 : 0xE0000000U) !=
                0 ||
            pthread_setattr_default_np(&huge) != 0) {
            abort();
        }
        pthread_attr_destroy(&huge);
    }
    ~ThreadRefusal() {
        pthread_setattr_default_np(&mBefore);
        pthread_attr_destroy(&mBefore);
    }
    ThreadRefusal(const ThreadRefusal&) = delete;
    ThreadRefusal& operator=(const ThreadRefusal&) = delete;

  private:
    pthread_attr_t mBefore{};
};
