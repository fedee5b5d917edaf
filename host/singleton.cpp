#include "singleton.h"

#include "config.h"
#include "session.h"
#include "valutcollection.h"

template<>
Config *Singleton<Config>::instance = nullptr;
template<>
Session *Singleton<Session>::instance = nullptr;
template<>
ValutCollection *Singleton<ValutCollection>::instance = nullptr;
