#pragma once

#include <singleton.h>

// Returns the process-wide host object, creating it on first use, as the host program does.
// Not guarded: the first use of each object must not race with another first use.
template<typename T>
T &hostInstance()
{
    if (!Singleton<T>::instance)
        Singleton<T>::instance = new T;
    return *Singleton<T>::instance;
}
