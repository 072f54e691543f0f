// The one guard for foreign objects: whatever has a release() is given back through it, never
// deleted.
#pragma once

#include <memory>

/// Gives a foreign object back. An exception that release() raises ends here, because a guard that
/// runs while the stack unwinds cannot let it pass; give_back() can.
struct Releaser {
    template <class T>
    void operator()(T* object) const noexcept
    {
        try {
            object->release();
        } catch (...) { // the object counts as given back: there is nothing else to do with it
        }
    }
};

/// Owns an object whose release() gives it back. A raw pointer to such an object is borrowed.
template <class T>
using owned = std::unique_ptr<T, Releaser>;

/// Gives the object back now and lets an exception of its release() pass; the guard is empty
/// afterwards either way. An empty guard is left alone.
template <class T>
void give_back(owned<T>& object)
{
    if (T* const taken = object.release()) {
        taken->release();
    }
}
