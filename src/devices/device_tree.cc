// getDeviceTree: the devices of the gateway below a path prefix, each with its type, display
// name, quality and change counter. There is no failing outcome: an unreadable device list
// gives an empty list, a device whose leaves cannot be read at all is left out, and a
// single unreadable leaf gives its default.
#include <string>
#include <vector>

#include "platform/cds.h"
#include "platform/utils.h"
#include "platform/vtx.h"
#include "service/context.h"
#include "soapH.h"

namespace {

// The four leaves read per device, in this order.
enum DeviceLeaf { kNodeType, kDisplayName, kQuality, kChangeCount, kDeviceLeafCount };
const char* const kDeviceLeafNames[kDeviceLeafCount] = {"/NodeType", "/DisplayName", "/.Quality",
                                                        "/sDevChangeCount/Value"};

// Whether `device` is listed for `prefix`: a plain text prefix (so /Dev1 also selects
// /Dev10, deliberately), and without `recursive` no "/" after the character that follows
// the prefix.
bool selected(const std::string& device, const std::string& prefix, bool recursive) {
  if (device.compare(0, prefix.size(), prefix) != 0) return false;
  return recursive || device.find('/', prefix.size() + 1) == std::string::npos;
}

std::string* newText(struct soap* soap, const std::string& text) {
  std::string* out = soap_new_std__string(soap);
  *out = text;
  return out;
}

// Reads the device's leaves in one call; false when the call failed as a whole.
bool describe(struct soap* soap, toolkit::CCds& cds, const std::string& device,
              nsqv__deviceDescriptor& descriptor) {
  // The root's leaves are "/NodeType", never "//NodeType".
  const std::string prefix = device.size() == 1 ? std::string() : device;
  std::vector<std::string> paths;
  for (const char* leaf : kDeviceLeafNames) paths.push_back(prefix + leaf);
  std::vector<api_status_t> statuses;
  std::vector<toolkit::CElement> values;
  std::vector<element_property_t> props;
  if (cds.get_leaves(paths, statuses, values, props) != 0) return false;
  auto read = [&statuses](DeviceLeaf leaf) { return statuses[leaf] == API_STATUS_OK; };
  descriptor.soap_default(soap);
  descriptor.devPath = newText(soap, device);
  descriptor.devType = newText(soap, read(kNodeType) ? values[kNodeType].to_string() : "Unknown");
  descriptor.devDisplayName =
      newText(soap, read(kDisplayName) ? values[kDisplayName].to_string() : "Unknown");
  descriptor.devQuality = read(kQuality) ? values[kQuality].to_int() : 0;
  descriptor.devChangeCount = read(kChangeCount) ? values[kChangeCount].to_int() : 0;
  // Without a change counter the quality leaf's time stamp stands in, whether or not that
  // leaf was read: kept so, as clients of the gateway expect it.
  const timeval& changed =
      read(kChangeCount) ? values[kChangeCount].get_time() : values[kQuality].get_time();
  descriptor.devChangeTime = vtx_UNIXtoVTXtime64(&changed);
  return true;
}

}  // namespace

// The options are accepted and ignored; an absent startingPath is the empty prefix, which
// selects every device. No read right is asked for: the device list is public.
int nsqv__getDeviceTree(struct soap* soap, std::string* /*options*/, std::string* startingPath,
                        bool bRecursive, nsqv__getDeviceTreeResponse& response) {
  response.result.clear();
  response.descriptors.clear();
  toolkit::CCds& cds = serviceContext(soap).cds;
  toolkit::CReadBatch snapshot(cds);
  std::vector<std::string> devices;
  if (CCds_Utils(cds).GetDeviceList(devices) <= 0) return SOAP_OK;
  const std::string prefix = startingPath != nullptr ? *startingPath : std::string();
  for (const std::string& device : devices) {
    if (!selected(device, prefix, bRecursive)) continue;
    nsqv__deviceDescriptor descriptor;
    if (describe(soap, cds, device, descriptor)) response.descriptors.push_back(descriptor);
  }
  return SOAP_OK;
}
