#include "common/update_lock.h"

constinit ProcessMutex updateLock;
