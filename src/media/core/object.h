// The media library's object model.
//
// Every library object derives from MxObject: it is reference counted (it starts with one
// reference, owned by whoever called the Create or Copy operation that produced it) and its
// class's table of operations is a set of virtual functions. An operation a class does not
// provide answers kMxErrUnimplemented (-12782), which is what the base versions return.
// MxRef<T> holds one reference and releases it when it goes away.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include "common/status.h"

// Property values (media/core/value.h) may hold references to objects, so this header only
// names the value type.
struct MxValue;

class MxObject {
 public:
  MxObject(const MxObject&) = delete;
  MxObject& operator=(const MxObject&) = delete;

  void Retain() const { refCount_.fetch_add(1, std::memory_order_relaxed); }
  void Release() const {
    if (refCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  long RetainCount() const { return refCount_.load(std::memory_order_relaxed); }

  virtual const char* ClassName() const = 0;

  // Common part of every class's table: copy a property by key, set a property.
  virtual Status CopyProperty(const std::string& key, MxValue* out) {
    (void)key;
    (void)out;
    return kMxErrUnimplemented;
  }
  virtual Status SetProperty(const std::string& key, const MxValue& value) {
    (void)key;
    (void)value;
    return kMxErrUnimplemented;
  }
  virtual std::string CopyDebugDescription() const;

 protected:
  MxObject() = default;
  virtual ~MxObject() = default;

 private:
  mutable std::atomic<long> refCount_{1};
};

// Owning handle of one reference. Adopt() takes over a reference the caller already owns (the
// result of a Create or Copy); Retained() takes a new one.
template <class T>
class MxRef {
 public:
  MxRef() = default;
  MxRef(std::nullptr_t) {}
  MxRef(const MxRef& other) : ptr_(other.ptr_) {
    if (ptr_) ptr_->Retain();
  }
  MxRef(MxRef&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
  template <class U>
  MxRef(MxRef<U>&& other) noexcept : ptr_(other.Detach()) {}
  ~MxRef() { reset(); }
  MxRef& operator=(MxRef other) noexcept {
    std::swap(ptr_, other.ptr_);
    return *this;
  }

  static MxRef Adopt(T* p) {
    MxRef r;
    r.ptr_ = p;
    return r;
  }
  static MxRef Retained(T* p) {
    if (p) p->Retain();
    return Adopt(p);
  }

  T* get() const { return ptr_; }
  T* operator->() const { return ptr_; }
  T& operator*() const { return *ptr_; }
  explicit operator bool() const { return ptr_ != nullptr; }
  T* Detach() { return std::exchange(ptr_, nullptr); }
  void reset() {
    if (ptr_) std::exchange(ptr_, nullptr)->Release();
  }

 private:
  T* ptr_ = nullptr;
};

// Memory allocators. A null allocator pointer everywhere means the default (malloc/free). The
// null allocator allocates nothing and frees nothing: memory handed over with it stays the
// caller's.
class MxAllocator : public MxObject {
 public:
  virtual void* Allocate(size_t size) = 0;
  virtual void Deallocate(void* memory, size_t size) = 0;
};

MxAllocator* MxAllocatorGetDefault();
MxAllocator* MxAllocatorGetNull();
inline MxAllocator* MxAllocatorResolve(MxAllocator* allocator) {
  return allocator ? allocator : MxAllocatorGetDefault();
}
