// The DFU operations that are alive, and the way to start and to end one.
//
// Called by the session driver and by the image preparation, under the update lock.
#pragma once

#include <atomic>

#include "common/intrusive_list.h"
#include "common/types.h"
#include "dfuengine/operation_context.h"
#include "dfuengine/operation_thread.h"

// The live operations in order of launch. It owns them. The update lock guards the list.
extern IntrusiveList<OperationThread> operationRegistry;

// Makes an operation from the caller's context, registers it and starts its thread.
//
// operationCode chooses the kind (see LeavesDfuMode; erase and download are of one kind); the
// operation itself goes by the context's operationCode. On success the new id, which is never 0, is
// in operationId and successCode comes back. A thread that cannot be created does not count as a
// failure: the operation then stays where it is. On failure operationId is untouched and nothing is
// registered: StatusNothingToWorkOn (refused code), StatusDeviceNotOpened, StatusRequestFailed (see
// OperationThread; also when memory is short).
//
// A refused code leaves the context as it was. Otherwise its status tells the outcome, and its
// transferSize what the device told, if the device was asked and answered. The image stays the
// caller's.
u32 LaunchOperation(OperationContext& context, std::atomic<u32>& operationId, u32 successCode,
                    u32 operationCode);

// Stops the operation that currentOperationId names, waits for its thread, closes its device, gives
// its last context to finalContext (unless that is null) and destroys it. currentOperationId keeps
// its value. StatusSuccess, or StatusNothingToWorkOn when there is no such operation.
u32 FinishOperation(OperationContext* finalContext);

// The registered operation with this id, or null.
OperationThread* FindOperation(u32 operationId);
