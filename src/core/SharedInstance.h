#pragma once

#include <QtGlobal>

// Where a service's shared() finds the one instance the composition root
// (AppServices) built. Only the root installs one; the services themselves get
// their collaborators through their constructors and never look here.
template <typename T> class SharedInstance
{
public:
    static T& get()
    {
        Q_ASSERT_X(s_instance, "SharedInstance", "used before the composition root was built");
        return *s_instance;
    }
    static bool exists() { return s_instance != nullptr; }

private:
    friend class AppServices;
    static inline T* s_instance = nullptr;
};
