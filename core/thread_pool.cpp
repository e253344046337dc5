#include "core/thread_pool.h"

#include <chrono>
#include <new>
#include <thread>

#include "core/debug_log.h"

namespace Vantyx {
namespace {
constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003u);
}  // namespace

CThreadPool::~CThreadPool() { Destroy(); }

int32_t CThreadPool::Create(int32_t requested) {
  Destroy();
  const int32_t count = requested < MAX_POOL_THREADS ? requested : MAX_POOL_THREADS;
  if (count < 1) return 0;

  slots = new (std::nothrow) PoolSlot[count];
  threads = new (std::nothrow) pthread_t[count];
  if (!slots || !threads) {
    delete[] slots;
    delete[] threads;
    slots = nullptr;
    threads = nullptr;
    return 0;
  }
  for (int32_t i = 0; i < count; ++i) {
    pthread_cond_init(&slots[i].cond, nullptr);
    pthread_mutex_init(&slots[i].mutex, nullptr);
  }
  // A worker that cannot be started shrinks the pool to the ones that were, so nothing is ever
  // posted to (or joined on) a thread that does not exist.
  int32_t started = 0;
  while (started < count &&
         pthread_create(&threads[started], nullptr, &CThreadPool::WorkerMain, &slots[started]) == 0)
    ++started;
  for (int32_t i = started; i < count; ++i) {
    pthread_cond_destroy(&slots[i].cond);
    pthread_mutex_destroy(&slots[i].mutex);
  }
  thread_count = started;
  next_slot = 0;
  return 0;
}

int32_t CThreadPool::Destroy() {
  if (thread_count < 1) {
    delete[] slots;
    delete[] threads;
    slots = nullptr;
    threads = nullptr;
    thread_count = 0;
    next_slot = 0;
    return 0;
  }
  for (int32_t i = 0; i < thread_count; ++i) {
    PoolSlot& slot = slots[i];
    pthread_mutex_lock(&slot.mutex);
    slot.quit.store(1);
    slot.wake = 1;
    pthread_cond_signal(&slot.cond);
    pthread_mutex_unlock(&slot.mutex);
  }
  for (int32_t i = 0; i < thread_count; ++i) {
    PoolSlot& slot = slots[i];
    if (pthread_join(threads[i], nullptr) != 0) DebugLog("[CThreadPool] thread destroy fail!!!");
    pthread_cond_destroy(&slot.cond);
    pthread_mutex_destroy(&slot.mutex);
    slot.fn = nullptr;
    slot.arg = nullptr;
    slot.done_cond = nullptr;
    slot.done_mutex = nullptr;
    slot.done_flag = nullptr;
    slot.result = nullptr;
  }
  delete[] slots;
  delete[] threads;
  slots = nullptr;
  threads = nullptr;
  thread_count = 0;
  next_slot = 0;
  return 0;
}

int32_t CThreadPool::AddJob(PoolJobFn fn, void* arg, int32_t* result, pthread_cond_t* done_cond,
                            pthread_mutex_t* done_mutex, uint8_t* done_flag) {
  if (!fn || !slots || thread_count < 1) return kInvalidArg;

  PoolSlot* slot = nullptr;
  for (;;) {
    // Round robin from one past the slot used last.
    for (int32_t n = 0; n < thread_count && !slot; ++n) {
      next_slot = (next_slot + 1) % thread_count;
      uint8_t idle = 0;
      if (slots[next_slot].busy.compare_exchange_strong(idle, 1)) slot = &slots[next_slot];
    }
    if (slot) break;
    std::this_thread::sleep_until(std::chrono::steady_clock::now() +
                                  std::chrono::milliseconds(1));
  }

  pthread_mutex_lock(&slot->mutex);
  slot->fn = fn;
  slot->arg = arg;
  slot->result = result;
  slot->done_cond = done_cond;
  slot->done_mutex = done_mutex;
  slot->done_flag = done_flag;
  slot->posted = 1;
  pthread_cond_signal(&slot->cond);
  pthread_mutex_unlock(&slot->mutex);
  return 0;
}

void* CThreadPool::WorkerMain(void* p) {
  auto* slot = static_cast<PoolSlot*>(p);
  if (!slot) return reinterpret_cast<void*>(static_cast<intptr_t>(kNullPointer));

  pthread_mutex_lock(&slot->mutex);
  slot->busy.store(0);  // reached the wait for the first time: ready for jobs
  for (;;) {
    // The posted flag is the predicate, so a spurious wake-up never runs a stale job.
    while (!slot->posted && !slot->wake) pthread_cond_wait(&slot->cond, &slot->mutex);
    if (!slot->posted) break;  // woken for shutdown with nothing left to run

    const PoolJobFn fn = slot->fn;
    void* const arg = slot->arg;
    int32_t* const result = slot->result;
    pthread_cond_t* const done_cond = slot->done_cond;
    pthread_mutex_t* const done_mutex = slot->done_mutex;
    uint8_t* const done_flag = slot->done_flag;
    slot->posted = 0;
    pthread_mutex_unlock(&slot->mutex);

    if (fn) fn(arg, result);

    // Idle before reporting: the job is copied out, so a new one may be posted at once, and a
    // poster that has seen every block of a dispatch finish finds every worker free again.
    slot->busy.store(0);
    if (done_mutex) {
      pthread_mutex_lock(done_mutex);
      if (done_flag) *done_flag = 1;
      if (done_cond) pthread_cond_signal(done_cond);
      pthread_mutex_unlock(done_mutex);
    } else if (done_cond) {
      pthread_cond_signal(done_cond);
    }

    pthread_mutex_lock(&slot->mutex);
  }
  pthread_mutex_unlock(&slot->mutex);
  return nullptr;
}

}  // namespace Vantyx
