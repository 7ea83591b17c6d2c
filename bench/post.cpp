// SPDX-License-Identifier: Apache-2.0
// Values posted to a loop by one or two threads as fast as they can, and handled one by one.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <uv.h>

#include <asio.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <queue>

#include "bench/flood.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"

namespace {

class Handler final : public lum::utils::LumEventHandler<Value> {
  public:
    using LumEventHandler::LumEventHandler;
    void handleEvent(Value value) override {
        benchmark::DoNotOptimize(value.get());
        ++mHandled;
    }
    int64_t mHandled = 0;
};

void post(benchmark::State& state) {
    LumTimer timer(nullptr);
    lum::utils::EventManager manager;
    Handler handler(manager, timer, "bench");
    flood(
        state, handler.mHandled, [&](const Value& value) { handler.postEvent(value); },
        [&] { manager.processEvents(&timer); });
}
LUM_FLOOD(post, "ours:post");

// A locked queue, the descriptor written under the lock for each value and read once for each, and
// the value handled without the lock.
void floorPost(benchmark::State& state) {
    const int epoll = epoll_create1(0);
    const int event = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK);
    epoll_event watched{};
    watched.events = EPOLLIN;
    epoll_ctl(epoll, EPOLL_CTL_ADD, event, &watched);
    std::mutex mutex;
    std::queue<Value> queue;
    int64_t handled = 0;
    const auto postValue = [&](const Value& value) {
        const std::lock_guard<std::mutex> lock(mutex);
        queue.push(value);
        const uint64_t one = 1;
        benchmark::DoNotOptimize(write(event, &one, sizeof one));
    };
    flood(state, handled, postValue, [&] {
        epoll_event ready{};
        epoll_wait(epoll, &ready, 1, -1);
        uint64_t count = 0;
        std::unique_lock<std::mutex> lock(mutex);
        while (read(event, &count, sizeof count) == sizeof count) {
            {
                const Value value = std::move(queue.front());
                queue.pop();
                lock.unlock();
                benchmark::DoNotOptimize(value.get());
                ++handled;
            }
            lock.lock();
        }
    });
    close(event);
    close(epoll);
}
LUM_FLOOD(floorPost, "floor:post");

void uvPost(benchmark::State& state) {
    struct Loop {
        uv_loop_t loop{};
        uv_async_t async{};
        std::mutex mutex;
        std::queue<Value> queue;
        int64_t handled = 0;
    } self;
    uv_loop_init(&self.loop);
    self.async.data = &self;
    uv_async_init(&self.loop, &self.async, [](uv_async_t* async) {
        Loop& loop = *static_cast<Loop*>(async->data);
        std::unique_lock<std::mutex> lock(loop.mutex);
        while (!loop.queue.empty()) {
            const Value value = std::move(loop.queue.front());
            loop.queue.pop();
            lock.unlock();
            benchmark::DoNotOptimize(value.get());
            ++loop.handled;
            lock.lock();
        }
    });
    flood(
        state, self.handled,
        [&](const Value& value) {
            {
                const std::lock_guard<std::mutex> lock(self.mutex);
                self.queue.push(value);
            }
            uv_async_send(&self.async);
        },
        [&] { uv_run(&self.loop, UV_RUN_ONCE); });
    uv_close(reinterpret_cast<uv_handle_t*>(&self.async), nullptr);
    uv_run(&self.loop, UV_RUN_DEFAULT);
    uv_loop_close(&self.loop);
}
LUM_FLOOD(uvPost, "libuv:post");

void asioPost(benchmark::State& state) {
    asio::io_context loop;
    const auto work = asio::make_work_guard(loop);
    int64_t handled = 0;
    flood(
        state, handled,
        [&](const Value& value) {
            asio::post(loop, [value, &handled] {
                benchmark::DoNotOptimize(value.get());
                ++handled;
            });
        },
        [&] { loop.run_one(); });
}
LUM_FLOOD(asioPost, "asio:post");

void glibPost(benchmark::State& state) {
    struct Posted {
        Value value;
        int64_t* handled;
    };
    GMainContext* const context = g_main_context_new();
    g_main_context_acquire(context);  // or a posting thread would handle its value itself
    int64_t handled = 0;
    flood(
        state, handled,
        [&](const Value& value) {
            g_main_context_invoke_full(
                context, G_PRIORITY_DEFAULT,
                [](void* data) {
                    ++*static_cast<Posted*>(data)->handled;
                    return gboolean{G_SOURCE_REMOVE};
                },
                new Posted{value, &handled}, [](void* data) { delete static_cast<Posted*>(data); });
        },
        [&] { g_main_context_iteration(context, 1); });
    g_main_context_release(context);
    g_main_context_unref(context);
}
LUM_FLOOD(glibPost, "glib:post");

}  // namespace
