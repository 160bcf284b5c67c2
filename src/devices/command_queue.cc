#include "devices/command_queue.h"

#include <cstdint>
#include <vector>

#include "devices/command_payload.h"
#include "platform/path.h"
#include "service/context.h"
#include "service/errors.h"

namespace {

constexpr const char* kNoDevicePath = "No device path given";
constexpr const char* kNotSupported = "No command support for this type";

bool nodeExists(toolkit::CCds& cds, const std::string& path) {
  api_status_t status;
  return cds.test_node(path, status) == 0 && status == API_STATUS_OK;
}

bool readLeaf(toolkit::CCds& cds, const std::string& path, toolkit::CElement& value) {
  api_status_t status;
  element_property_t prop;
  return cds.get_leaf(path, status, value, prop) == 0 && status == API_STATUS_OK;
}

bool writeLeaf(toolkit::CCds& cds, const std::string& path, const toolkit::CElement& value,
               bool persist) {
  api_status_t status;
  return cds.set_leaf(path, value, status, persist, "") == 0 && status == API_STATUS_OK;
}

// A name that a cmdList entry is built from. It must name its entry exactly: the store's path
// rules would fold an empty name or a stray "/" onto a listed ancestor ("cmdBasic/relay/" is
// "cmdBasic/relay"), which would accept any parameter.
bool isEntryName(const std::string* name) {
  return name != nullptr && !name->empty() && name->front() != '/' && name->back() != '/' &&
         name->find("//") == std::string::npos;
}

template <class NamedCommand>
std::string namedEntry(const std::string& list, const char* kind, const NamedCommand* command) {
  if (command == nullptr || !isEntryName(command->name) || !isEntryName(command->param)) {
    return std::string();
  }
  return list + kind + *command->name + "/" + *command->param;
}

// The cmdList entry that must exist for `command`, or "" for a command never accepted.
std::string capabilityPath(const std::string& area, const nsc3__sendCmd_s& command) {
  const std::string list = area + "/cmdList";
  switch (command.__union_cmd) {
    case SOAP_UNION__nsc3__union_cmd_cmdLine:
      return isEntryName(command.union_cmd.cmdLine)
                 ? list + "/cmdLine/" + *command.union_cmd.cmdLine
                 : std::string();
    case SOAP_UNION__nsc3__union_cmd_cmdBasic:
      return namedEntry(list, "/cmdBasic/", command.union_cmd.cmdBasic);
    case SOAP_UNION__nsc3__union_cmd_cmdIval:
      return namedEntry(list, "/cmdIval/", command.union_cmd.cmdIval);
    default:
      // Text commands are in the schema but deliberately never accepted.
      return std::string();
  }
}

// Whether one more command fits: the queue's children are "maxCount" and one node per
// queued command; the capacity is read only when something is queued already.
int checkQueue(toolkit::CCds& cds, const std::string& queue, std::string& detail) {
  detail = queue + "/maxCount/Value";
  std::vector<std::string> children;
  if (CPath(queue).getAttributeList("Children", cds, children) != 0 || children.empty()) {
    return kWsNodeNotFound;
  }
  if (children.size() == 1) return 0;
  toolkit::CElement capacity;
  if (!readLeaf(cds, detail, capacity)) return kWsNodeNotFound;
  if (children.size() > capacity.to_uint()) {
    detail = "Input Queue already full";
    return kWsDeviceBusy;
  }
  return 0;
}

// Takes the next handle from the shared counter. The counter must have moved on before the
// handle is used: a handle handed out twice would overwrite a command still queued.
int takeHandle(toolkit::CCds& cds, int32_t& handle) {
  toolkit::CElement counter;
  if (!readLeaf(cds, kCommandCounterPath, counter)) return kWsNodeNotFound;
  handle = counter.to_int();
  toolkit::CElement next;
  // Wraps around after the largest handle instead of overflowing.
  next.set_int(static_cast<int32_t>(static_cast<uint32_t>(handle) + 1u));
  return writeLeaf(cds, kCommandCounterPath, next, /*persist=*/true) ? 0 : kWsWriteFailed;
}

// Stores the command text under its handle. The node is made first (a leaf needs its node);
// a node left without its text would take a place in the queue, so it is removed again.
bool storeCommand(toolkit::CCds& cds, const std::string& node, const std::string& text) {
  api_status_t status;
  // A handle still queued (the counter was set back) is never overwritten.
  if (nodeExists(cds, node)) return false;
  if (cds.add_node(node, status, "") != 0 || status != API_STATUS_OK) return false;
  if (writeLeaf(cds, node + "/Value", toolkit::CElement(text), /*persist=*/false)) return true;
  cds.remove_node(node, status, false, "");
  return false;
}

std::string* newText(struct soap* soap, const std::string* text) {
  if (text == nullptr) return nullptr;
  std::string* out = soap_new_std__string(soap);
  *out = *text;
  return out;
}

// A copy of a parsed payload in `owner`'s storage.
nsc3__cmdResult_s* copyResults(struct soap* owner, const nsc3__cmdResult_s* from) {
  if (from == nullptr) return nullptr;
  nsc3__cmdResult_s* to = soap_new_nsc3__cmdResult_s(owner);
  to->cmdVersion = from->cmdVersion;
  if (from->__union_result == SOAP_UNION__nsc3__union_result_resText &&
      from->union_result.resText != nullptr) {
    to->__union_result = SOAP_UNION__nsc3__union_result_resText;
    to->union_result.resText = newText(owner, from->union_result.resText);
  } else if (from->__union_result == SOAP_UNION__nsc3__union_result_resHarms &&
             from->union_result.resHarms != nullptr) {
    const nsc3__harmonicResponse& harms = *from->union_result.resHarms;
    nsc3__harmonicResponse* copy = soap_new_nsc3__harmonicResponse(owner);
    copy->cdsName = newText(owner, harms.cdsName);
    copy->displayName = newText(owner, harms.displayName);
    copy->timeSample = harms.timeSample;
    copy->hData = harms.hData;
    to->__union_result = SOAP_UNION__nsc3__union_result_resHarms;
    to->union_result.resHarms = copy;
  }
  return to;
}

}  // namespace

std::string commandArea(const std::string& device_path) {
  std::string name;
  CPath::PathToNodeName(device_path, name);
  return "/Software/Commands/" + name;
}

void queueCommand(toolkit::CCds& cds, const std::string* device_path,
                  const nsc3__sendCmd_s* command, const RequestOptions& options,
                  nsc3__sendDeviceCmdResponse& response) {
  response.result.clear();
  response.cmdHandle = 0;
  auto fail = [&](int code, const std::string& detail) {
    formatError(code, detail, response.result, &options);
  };
  if (device_path == nullptr || device_path->empty()) return fail(kWsBadPathSyntax, kNoDevicePath);
  const std::string area = commandArea(*device_path);
  if (!nodeExists(cds, area + "/WsdlVersion")) return fail(kWsCommandNotSupported, *device_path);
  const std::string version_path = area + "/WsdlVersion/Value";
  toolkit::CElement version;
  if (!readLeaf(cds, version_path, version)) return fail(kWsNodeNotFound, version_path);
  // A device takes every schema version up to its own.
  const int64_t requested = command != nullptr ? command->cmdVersion : 0;
  if (version.get_type() != DATA_TYPE_UINT || static_cast<int64_t>(version.to_uint()) < requested) {
    return fail(kWsWrongVersion, "Wrong WSDL Version requested");
  }
  const std::string entry = command != nullptr ? capabilityPath(area, *command) : std::string();
  if (entry.empty() || !nodeExists(cds, entry)) return fail(kWsCommandNotSupported, kNotSupported);
  const std::string queue = area + "/inpQueue";
  std::string detail;
  if (int code = checkQueue(cds, queue, detail)) return fail(code, detail);
  int32_t handle = 0;
  if (int code = takeHandle(cds, handle)) return fail(code, kCommandCounterPath);
  // The handle is the caller's now, even when the command cannot be stored.
  response.cmdHandle = handle;
  const std::string node = queue + "/" + std::to_string(handle);
  std::string text;
  if (!CommandPayload().write(*command, kCommandElement, text) || !storeCommand(cds, node, text)) {
    fail(kWsWriteFailed, node + "/Value");
  }
}

void readCommandResult(struct soap* owner, toolkit::CCds& cds, const std::string* device_path,
                       int handle, const RequestOptions& options,
                       nsc3__getDeviceCmdResultResponse& response) {
  response.soap_default(owner);
  auto fail = [&](int code, const std::string& detail, nsc3__cmdNumStatus status,
                  const char* status_text) {
    formatError(code, detail, response.result, &options);
    response.numericStatus = status;
    response.cmdStatus = status_text;
  };
  if (device_path == nullptr || device_path->empty()) {
    return fail(kWsBadPathSyntax, kNoDevicePath, nsc3__cmdNumStatus__cmdFailInvalid, kNoDevicePath);
  }
  const std::string node = commandArea(*device_path) + "/outQueue/" + std::to_string(handle);
  response.cmdHandle = handle;
  if (!nodeExists(cds, node)) {
    return fail(kWsHandleInvalid, *device_path + " for cmd #" + std::to_string(handle),
                nsc3__cmdNumStatus__cmdFailHandle,
                "No such cmdHandle exists, or its results were aged out");
  }
  const std::string leaf = node + "/Value";
  toolkit::CElement stored;
  if (!readLeaf(cds, leaf, stored)) {
    return fail(kWsNoDataAvailable, leaf, nsc3__cmdNumStatus__cmdFailOther,
                "Could not read results");
  }
  CommandPayload payload;
  nsc3__getDeviceCmdResultResponse parsed;
  // The runtime refuses a status outside the enumeration, by name or number.
  if (!payload.read(stored.to_string(), kResultElement, parsed) || parsed.cmdHandle != handle) {
    return fail(kWsNoDataAvailable, leaf, nsc3__cmdNumStatus__cmdFailOther,
                "Could not deserialize results from device handler");
  }
  response.result = parsed.result;
  response.numericStatus = parsed.numericStatus;
  response.cmdStatus = parsed.cmdStatus;
  response.cmdResults = copyResults(owner, parsed.cmdResults);
}

int nsc3__sendDeviceCmd(struct soap* soap, std::string* options, std::string* devPath,
                        nsc3__sendCmd_s* cmd, nsc3__sendDeviceCmdResponse& response) {
  queueCommand(serviceContext(soap).cds, devPath, cmd, parseOptions(options), response);
  return SOAP_OK;
}

int nsc3__getDeviceCmdResult(struct soap* soap, std::string* options, std::string* devPath,
                             int cmdHandle, nsc3__getDeviceCmdResultResponse& response) {
  toolkit::CCds& cds = serviceContext(soap).cds;
  toolkit::CReadBatch snapshot(cds);
  readCommandResult(soap, cds, devPath, cmdHandle, parseOptions(options), response);
  return SOAP_OK;
}
