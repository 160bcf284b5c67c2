// The device command queue in the Data store. The data server never talks to a device: it
// drops a command into the device's input queue and reads the result that the device's
// handler process leaves in the output queue. Each device's command area is
//
//   /Software/Commands/NAME                 NAME = CPath::PathToNodeName(device path)
//     WsdlVersion/Value                     Unsigned: the newest command schema it knows
//     cmdList/cmdLine/TEXT                  a command line it accepts
//     cmdList/cmdBasic/NAME/PARAM           a simple command it accepts
//     cmdList/cmdIval/NAME/PARAM            a set-integer-value command it accepts
//     inpQueue/maxCount/Value               Unsigned: capacity of the input queue
//     inpQueue/HANDLE/Value                 String: a queued command (nsc3:sendCmd-s)
//     outQueue/HANDLE/Value                 String: its result (nsc3:getDeviceCmdResultResponse)
//
// and /Software/Commands/nextCommandID/Value (Integer) is the next handle, shared by all
// devices. The handler owns both queues once a command is stored: the data server removes
// nothing from them.
#ifndef WSGATE_DEVICES_COMMAND_QUEUE_H
#define WSGATE_DEVICES_COMMAND_QUEUE_H

#include <string>

#include "platform/cds.h"
#include "service/options.h"
#include "soapH.h"

inline constexpr const char* kCommandCounterPath = "/Software/Commands/nextCommandID/Value";

// The command area of the device at `device_path`.
std::string commandArea(const std::string& device_path);

// Queues `command` (null: none given) for the device at `device_path` (null: none given)
// under a new handle. On success `response` has the handle and an empty result; otherwise
// the result is the error text (under `options`) of the first check that failed, in this
// order: no device path (8), no command support (29: device path), version unreadable (9),
// version not Unsigned or lower than the command's (30), a text command, no command or one
// not listed (29), queue unreadable (9: the capacity's path), queue full (31), counter
// unreadable or not advanced (9, 16: the counter's path), command not stored (16: its path,
// with the handle it took).
void queueCommand(toolkit::CCds& cds, const std::string* device_path,
                  const nsc3__sendCmd_s* command, const RequestOptions& options,
                  nsc3__sendDeviceCmdResponse& response);

// Reads the result that the device's handler stored for `handle` into `response`, the
// stored record copied whole into storage of `owner` (the request's context). Failures set
// the result (under `options`), numericStatus and cmdStatus: no device path (8,
// cmdFailInvalid), no result (32, cmdFailHandle), result unreadable or not a result of this
// handle (22, cmdFailOther).
void readCommandResult(struct soap* owner, toolkit::CCds& cds, const std::string* device_path,
                       int handle, const RequestOptions& options,
                       nsc3__getDeviceCmdResultResponse& response);

#endif  // WSGATE_DEVICES_COMMAND_QUEUE_H
