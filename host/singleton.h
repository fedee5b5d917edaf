#pragma once

#include "zelnorhost_global.h"

// Process-wide host objects. The pointer is null until someone creates the object; whoever
// finds it null creates it with its default constructor and stores it, and from then on the
// object belongs to the process. The pointers live in the host library so that the plug-in
// and the host program share one of each.
template<typename T>
class Singleton
{
public:
    static T *instance;
};

class Config;
class Session;
class ValutCollection;

template<>
ZELNORHOST_EXPORT Config *Singleton<Config>::instance;
template<>
ZELNORHOST_EXPORT Session *Singleton<Session>::instance;
template<>
ZELNORHOST_EXPORT ValutCollection *Singleton<ValutCollection>::instance;
