// The worker pool: worker counts, start and stop, and jobs handed over and reported back.
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "core/thread_pool.h"

namespace Vantyx {
namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);

// One posted job and the completion pair its poster waits on.
struct Completion {
  pthread_cond_t cond;
  pthread_mutex_t mutex;
  uint8_t done = 0;
  int32_t result = 0;
  Completion() {
    pthread_cond_init(&cond, nullptr);
    pthread_mutex_init(&mutex, nullptr);
  }
  ~Completion() {
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
  }
  void Wait() {
    pthread_mutex_lock(&mutex);
    while (!done) pthread_cond_wait(&cond, &mutex);
    pthread_mutex_unlock(&mutex);
  }
};

struct Counter {
  std::atomic<int> runs{0};
  std::atomic<std::thread::id> last{};
};

int32_t CountJob(void* arg, int32_t* result) {
  auto* c = static_cast<Counter*>(arg);
  c->runs.fetch_add(1);
  c->last.store(std::this_thread::get_id());
  *result = 42;
  return 0;
}

int32_t Post(CThreadPool& pool, Completion& c, Counter& counter) {
  return pool.AddJob(&CountJob, &counter, &c.result, &c.cond, &c.mutex, &c.done);
}

TEST(ThreadPool, WorkerCountsStartsAndStops) {
  CThreadPool pool;
  Completion c;
  Counter counter;
  // No workers: refused instead of waiting forever for an idle one.
  EXPECT_EQ(Post(pool, c, counter), kInvalidArg);
  EXPECT_EQ(pool.Destroy(), 0);  // never started
  // Each Create on a running pool joins the old workers first.
  const int32_t rows[][2] = {{3, 3}, {12, MAX_POOL_THREADS}, {1, 1}, {0, 0}, {-5, 0}, {2, 2}};
  for (const auto& r : rows) {
    EXPECT_EQ(pool.Create(r[0]), 0);
    EXPECT_EQ(pool.GetThreadCount(), r[1]) << r[0];
  }
  EXPECT_EQ(pool.AddJob(nullptr, &counter, &c.result, &c.cond, &c.mutex, &c.done), kInvalidArg);
  EXPECT_EQ(pool.Destroy(), 0);
  EXPECT_EQ(pool.Destroy(), 0);
  EXPECT_EQ(pool.GetThreadCount(), 0);
  EXPECT_EQ(counter.runs.load(), 0);
  ASSERT_EQ(pool.Create(2), 0);  // usable again after a stop
  ASSERT_EQ(Post(pool, c, counter), 0);
  c.Wait();
  EXPECT_EQ(counter.runs.load(), 1);
}

TEST(ThreadPool, EveryJobRunsAndReports) {
  CThreadPool pool;
  ASSERT_EQ(pool.Create(4), 0);
  constexpr int kJobs = 64;
  Completion done[kJobs];
  Counter counters[kJobs];
  // More jobs than workers: posting waits (1 ms steps) for a worker to come free.
  for (int i = 0; i < kJobs; ++i) ASSERT_EQ(Post(pool, done[i], counters[i]), 0);
  std::set<std::thread::id> workers;
  for (int i = 0; i < kJobs; ++i) {
    done[i].Wait();
    EXPECT_EQ(counters[i].runs.load(), 1) << i;
    EXPECT_EQ(done[i].result, 42);
    workers.insert(counters[i].last.load());
  }
  EXPECT_LE(workers.size(), 4u);
  EXPECT_EQ(workers.count(std::this_thread::get_id()), 0u);  // never on the poster's thread
}

TEST(ThreadPool, RoundRobinAcrossIdleWorkers) {
  // Sequential jobs on idle workers go to a different worker each time, one past the last. A
  // worker still starting counts as busy, so the pool warms up until all three have run a job;
  // a worker is idle again before it reports, so after that every scan sees all three free.
  CThreadPool pool;
  ASSERT_EQ(pool.Create(3), 0);
  auto run_one = [&] {
    Completion c;
    Counter counter;
    EXPECT_EQ(Post(pool, c, counter), 0);
    c.Wait();
    return counter.last.load();
  };
  std::set<std::thread::id> seen;
  for (int i = 0; i < 10000 && seen.size() < 3; ++i) seen.insert(run_one());
  ASSERT_EQ(seen.size(), 3u);
  std::vector<std::thread::id> ids;
  for (int i = 0; i < 6; ++i) ids.push_back(run_one());
  EXPECT_EQ(std::set<std::thread::id>(ids.begin(), ids.begin() + 3).size(), 3u);
  EXPECT_TRUE(std::equal(ids.begin(), ids.begin() + 3, ids.begin() + 3));
}

TEST(ThreadPool, DestroyRightAfterPostingStillRunsTheJobs) {
  // A job posted just before the stop must run even when the worker wakes to both at once.
  for (int round = 0; round < 200; ++round) {
    CThreadPool pool;
    ASSERT_EQ(pool.Create(2), 0);
    Completion c[2];
    Counter counter[2];
    for (int i = 0; i < 2; ++i) ASSERT_EQ(Post(pool, c[i], counter[i]), 0);
    pool.Destroy();  // joins after the posted jobs have run
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(counter[i].runs.load(), 1) << "round " << round;  // else the wait never ends
      c[i].Wait();
    }
  }
}

}  // namespace
}  // namespace Vantyx
