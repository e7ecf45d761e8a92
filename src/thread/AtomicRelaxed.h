// AtomicRelaxed.h - a field that one thread writes and another reads without
// a lock, such as a progress count or a stop flag. It reads and writes like
// a plain value (x = 1, x += n, if (x)); the accesses are atomic but impose
// no ordering, which is all such a field needs: a reader may see a slightly
// stale value, never a torn one.
#ifndef VARDA_THREAD_ATOMICRELAXED_H
#define VARDA_THREAD_ATOMICRELAXED_H

#include <atomic>

template <class T>
class TAtomicRelaxed {
 public:
  constexpr TAtomicRelaxed(T v = T()) : value(v) {}
  TAtomicRelaxed(const TAtomicRelaxed&) = delete;
  TAtomicRelaxed& operator=(const TAtomicRelaxed&) = delete;

  T load() const { return value.load(std::memory_order_relaxed); }
  void store(T v) { value.store(v, std::memory_order_relaxed); }

  operator T() const { return load(); }
  // For pointer fields.
  T operator->() const { return load(); }
  T operator=(T v) {
    store(v);
    return v;
  }

  // Arithmetic, for integer fields: each is one atomic read-modify-write.
  T operator+=(T n) { return value.fetch_add(n, std::memory_order_relaxed) + n; }
  T operator-=(T n) { return value.fetch_sub(n, std::memory_order_relaxed) - n; }
  T operator++() { return *this += 1; }
  T operator--() { return *this -= 1; }
  T operator++(int) { return value.fetch_add(1, std::memory_order_relaxed); }
  T operator--(int) { return value.fetch_sub(1, std::memory_order_relaxed); }

 private:
  std::atomic<T> value;
};

#endif
