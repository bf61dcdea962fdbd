#include "dfuengine/operation_registry.h"

#include <new>

#include "common/status.h"
#include "dfuengine/flash_operation.h"
#include "dfuengine/leave_dfu_operation.h"
#include "dfuengine/session_values.h"

constinit IntrusiveList<OperationThread> operationRegistry;

namespace {

// The last id given out; the update lock guards it. Counted rather than taken from the object's
// address: a new operation often gets the address of the one before, and a stale id would fit it.
u32 lastOperationId = 0;

u32 NextOperationId() {
  ++lastOperationId;
  if (lastOperationId == 0) {
    ++lastOperationId;
  }
  return lastOperationId;
}

OperationThread* MakeOperation(OperationContext& context, u32 operationCode) {
  if (LeavesDfuMode(operationCode)) {
    return new (std::nothrow) LeaveDfuOperation(context);
  }
  return new (std::nothrow) FlashOperation(context);
}

}  // namespace

u32 LaunchOperation(OperationContext& context, std::atomic<u32>& operationId, u32 successCode,
                    u32 operationCode) {
  if (operationCode == OperationRefused || operationCode > OperationDownload) {
    return StatusNothingToWorkOn;
  }
  OperationThread* operation = MakeOperation(context, operationCode);
  if (operation == nullptr) {
    context.status = StatusRequestFailed;
    return StatusRequestFailed;
  }
  if (context.status != StatusSuccess) {
    delete operation;
    return context.status;
  }

  operation->operationId = NextOperationId();
  operationRegistry.Append(*operation);
  operation->Start();
  operationId = operation->operationId;
  return successCode;
}

u32 FinishOperation(OperationContext* finalContext) {
  OperationThread* operation = FindOperation(currentOperationId);
  if (operation == nullptr) {
    return StatusNothingToWorkOn;
  }
  operation->Stop(nullptr);
  if (finalContext != nullptr) {
    operation->GetContext(*finalContext);
  }
  operationRegistry.Remove(operation);
  delete operation;
  return StatusSuccess;
}

OperationThread* FindOperation(u32 operationId) {
  OperationThread* operation = operationRegistry.First();
  while (operation != nullptr && operation->operationId != operationId) {
    operation = operation->nextInList;
  }
  return operation;
}
