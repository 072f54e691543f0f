// The one guard for foreign objects: it gives back whatever has a release(), and never deletes it.
#pragma once

#include <memory>

/// Gives a foreign object back. Swallows exceptions of release(), because a destructor must not
/// throw while the stack unwinds. Use give_back() to let them pass.
struct Releaser {
    template <class T>
    void operator()(T* object) const noexcept
    {
        try {
            object->release();
        } catch (...) { // the object counts as given back
        }
    }
};

/// Owns an object that is given back with release(). A raw pointer to such an object is borrowed.
template <class T>
using owned = std::unique_ptr<T, Releaser>;

/// Gives the object back now. Lets exceptions of its release() pass; the guard is empty afterwards
/// in any case. Does nothing if the guard is already empty.
template <class T>
void give_back(owned<T>& object)
{
    if (T* const taken = object.release()) {
        taken->release();
    }
}
