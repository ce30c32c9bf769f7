// Shared ownership as the system's interfaces spell it.
#pragma once

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include <cerrno>
#include <memory>
#include <new>

namespace MTF {

// A reference-counted owner whose count may be changed from several threads. The object itself is
// not locked. One of a derived class doesn't convert: say share<Base>(new (std::nothrow) Derived).
template <class T>
using Ref_Ptr = ACE_Refcounted_Auto_Ptr<T, ACE_Recursive_Thread_Mutex>;

// The null pointer of a type, to be copied where memory is short: making one takes some.
template <class T>
inline const Ref_Ptr<T> null_ref;

// Takes an object that came from the non-throwing `new` under shared ownership. Null, with errno
// 12, if it is null; the same if there is no memory for the count, and the object is freed.
template <class T>
Ref_Ptr<T> share(T* object) noexcept {
  std::unique_ptr<T> owned(object);
  try {
    if (object != nullptr) {
      Ref_Ptr<T> shared(object);
      owned.release();
      return shared;
    }
  } catch (const std::bad_alloc&) {
  }
  errno = ENOMEM;
  return null_ref<T>;
}

}  // namespace MTF
