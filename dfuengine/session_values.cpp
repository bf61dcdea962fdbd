#include "dfuengine/session_values.h"

constinit std::atomic<u32> currentOperationId = 0;
DfuImage* upgradeImage = nullptr;
u32 disconnectNotified = 0;
