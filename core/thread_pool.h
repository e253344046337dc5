// The engine's worker threads. A job is posted to one idle worker, which runs it and signals
// the completion pair the poster supplied. Only one poster may use a pool at a time.
//
// Completion contract: when the job has run, the worker marks itself idle, then locks
// *done_mutex, sets *done_flag to 1 (when given), signals *done_cond and unlocks. A poster
// that waits in a loop on its flag under done_mutex therefore neither misses the signal nor
// mistakes a spurious wake-up for completion. Every job accepted by AddJob runs, even when
// Destroy follows at once.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace Vantyx {

constexpr int32_t MAX_POOL_THREADS = 8;

using PoolJobFn = int32_t (*)(void* arg, int32_t* result);

struct PoolSlot {
  std::atomic<uint8_t> busy{1};  // 1 while a job is posted or running, or before the first wait
  std::atomic<uint8_t> quit{0};
  PoolJobFn fn = nullptr;
  void* arg = nullptr;
  pthread_cond_t cond;
  pthread_mutex_t mutex;
  pthread_cond_t* done_cond = nullptr;
  pthread_mutex_t* done_mutex = nullptr;
  int32_t* result = nullptr;
  uint8_t* done_flag = nullptr;  // set to 1 under *done_mutex when the job has run
  uint8_t wake = 0;    // shutdown: do not wait any more (guarded by mutex)
  uint8_t posted = 0;  // a job is waiting to be taken (guarded by mutex)
};

class CThreadPool {
 public:
  CThreadPool() = default;
  ~CThreadPool();
  CThreadPool(const CThreadPool&) = delete;
  CThreadPool& operator=(const CThreadPool&) = delete;

  // Destroy(), then start min(requested, MAX_POOL_THREADS) workers (none for requested < 1).
  // Returns 0.
  int32_t Create(int32_t requested);
  // Stops and joins every worker. Idempotent. Returns 0.
  int32_t Destroy();
  // Posts one job to the next idle worker after the last one used, sleeping 1 ms between
  // scans while all are busy. 0x80070057 for a null fn or a pool with no workers (which
  // would otherwise never find one).
  int32_t AddJob(PoolJobFn fn, void* arg, int32_t* result, pthread_cond_t* done_cond,
                 pthread_mutex_t* done_mutex, uint8_t* done_flag = nullptr);
  int32_t GetThreadCount() const { return thread_count; }

 private:
  static void* WorkerMain(void* slot);

  int32_t thread_count = 0;
  PoolSlot* slots = nullptr;
  pthread_t* threads = nullptr;
  int32_t next_slot = 0;
};

}  // namespace Vantyx
