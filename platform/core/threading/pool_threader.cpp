// Threader entries of the pool layer: a process-wide pool of threads that sleep between regions.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "qnd_core/ss.h"
#include "thread_count.hpp"

using namespace qnd_layer;

namespace {

// A region is one function run as member t of a team of n threads, for every t < n.
struct region {
    void (*run)(void* ctx, int32_t t, int32_t n);
    void* ctx;
    int32_t n;
};

thread_local bool inside_pool = false;

// One region at a time; the caller is member 0 and the workers the others. A region asked for
// while another runs, or from inside one, runs on the caller alone, member after member.
struct pool {
    std::mutex submit;
    std::mutex m;
    std::condition_variable wake;
    std::condition_variable done;
    uint64_t generation = 0;
    region current{};
    int32_t remaining = 0;
    bool stopping = false;
    std::vector<std::thread> workers;

    // The workers are joined when the library is unloaded or the process ends, so that none
    // outlives the code and the thread-local state it runs on.
    ~pool() {
        {
            std::lock_guard<std::mutex> lock(m);
            stopping = true;
        }
        wake.notify_all();
        for (std::thread& worker : workers) {
            worker.join();
        }
    }

    void grow(int32_t wanted) {
        while (static_cast<int32_t>(workers.size()) < wanted) {
            const auto member = static_cast<int32_t>(workers.size()) + 1;
            workers.emplace_back([this, member] { serve(member); });
        }
    }

    void serve(int32_t member) {
        inside_pool = true;
        uint64_t seen = 0;
        std::unique_lock<std::mutex> lock(m);
        for (;;) {
            wake.wait(lock, [&] { return generation != seen || stopping; });
            if (generation == seen) {
                return;
            }
            seen = generation;
            if (member >= current.n) {
                continue;
            }
            const region r = current;
            lock.unlock();
            r.run(r.ctx, member, r.n);
            lock.lock();
            if (--remaining == 0) {
                done.notify_all();
            }
        }
    }

    void run(const region& r) {
        if (r.n <= 1 || inside_pool || !submit.try_lock()) {
            for (int32_t t = 0; t < r.n; ++t) {
                r.run(r.ctx, t, r.n);
            }
            return;
        }
        {
            std::lock_guard<std::mutex> lock(m);
            grow(r.n - 1);
            current = r;
            remaining = r.n - 1;
            ++generation;
        }
        wake.notify_all();
        inside_pool = true;
        r.run(r.ctx, 0, r.n);
        inside_pool = false;
        {
            std::unique_lock<std::mutex> lock(m);
            done.wait(lock, [&] { return remaining == 0; });
        }
        submit.unlock();
    }
};

pool& the_pool() {
    static pool p;
    return p;
}

struct for_region {
    int64_t n;
    void* ctx;
    qnd_threader_body body;
};

void run_for(void* c, int32_t t, int32_t nt) {
    const for_region& f = *static_cast<const for_region*>(c);
    const int64_t end = range_begin(f.n, t + 1, nt);
    for (int64_t i = range_begin(f.n, t, nt); i < end; ++i) {
        f.body(f.ctx, i, t, nt);
    }
}

struct sections_region {
    int32_t n;
    void* ctx;
    qnd_threader_body body;
    std::atomic<int32_t> next{0};
};

void run_sections(void* c, int32_t t, int32_t nt) {
    sections_region& s = *static_cast<sections_region*>(c);
    for (int32_t i = s.next++; i < s.n; i = s.next++) {
        s.body(s.ctx, i, t, nt);
    }
}

struct team_region {
    void* ctx;
    qnd_threader_body body;
};

void run_team(void* c, int32_t t, int32_t nt) {
    const team_region& r = *static_cast<const team_region*>(c);
    r.body(r.ctx, t, t, nt);
}

}  // namespace

extern "C" {

int32_t qnd_rtk_serv_threader_get_num_threads_limit(void) {
    return limit_from_environment(hardware_threads());
}

void qnd_rtk_serv_threader_for(int64_t n, int32_t max_threads, void* ctx, qnd_threader_body body) {
    for_region f{n, ctx, body};
    const int32_t nt =
        region_threads(qnd_rtk_serv_threader_get_num_threads_limit(), max_threads, n);
    the_pool().run(region{&run_for, &f, nt});
}

void qnd_rtk_serv_threader_for_ordered(int64_t n,
                                       int32_t max_threads,
                                       void* ctx,
                                       qnd_threader_body body,
                                       qnd_threader_body ordered_body) {
    qnd_rtk_serv_threader_for(n, max_threads, ctx, body);
    for (int64_t i = 0; i < n; ++i) {
        ordered_body(ctx, i, 0, 1);
    }
}

void qnd_rtk_serv_threader_sections(int32_t n_sections,
                                    int32_t max_threads,
                                    void* ctx,
                                    qnd_threader_body body) {
    sections_region s;
    s.n = n_sections;
    s.ctx = ctx;
    s.body = body;
    const int32_t nt =
        region_threads(qnd_rtk_serv_threader_get_num_threads_limit(), max_threads, n_sections);
    the_pool().run(region{&run_sections, &s, nt});
}

void qnd_rtk_serv_threader_ordered(int32_t max_threads,
                                   void* ctx,
                                   qnd_threader_body body,
                                   qnd_threader_body ordered_body) {
    const int32_t limit = qnd_rtk_serv_threader_get_num_threads_limit();
    const int32_t nt = region_threads(limit, max_threads, limit);
    team_region r{ctx, body};
    the_pool().run(region{&run_team, &r, nt});
    if (ordered_body != nullptr) {
        for (int32_t t = 0; t < nt; ++t) {
            ordered_body(ctx, t, t, nt);
        }
    }
}
}
