#pragma once

#include <singleton.h>

// The host's process-wide object, created with its default constructor when the host has not
// created it yet; it then belongs to the host process. No lock: the first use of each object
// must not race with another first use.
template<typename T>
T &hostObject()
{
    if (!Singleton<T>::instance)
        Singleton<T>::instance = new T;
    return *Singleton<T>::instance;
}
