// Devices of the gateway.
//
// A device is a node whose "NodeType" leaf reads "Device"; the root "/" is the gateway's
// own device.
#ifndef WSGATE_PLATFORM_UTILS_H
#define WSGATE_PLATFORM_UTILS_H

#include <string>
#include <vector>

namespace toolkit {
class CCds;
}

class CCds_Utils {
 public:
  explicit CCds_Utils(toolkit::CCds& cds) : cds_(cds) {}

  // Fills `devices` with the device paths in path order; returns their number, or -1 when
  // the store cannot be read.
  int GetDeviceList(std::vector<std::string>& devices);
  // The ".Quality" of the nearest device at or above `path`; 0 when there is none or it
  // cannot be read.
  unsigned CheckDeviceQuality(const std::string& path);

 private:
  toolkit::CCds& cds_;
};

#endif  // WSGATE_PLATFORM_UTILS_H
