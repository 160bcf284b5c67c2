// The Connections node of an application: one child node per live client connection.
#ifndef WSGATE_PLATFORM_CONNXNS_H
#define WSGATE_PLATFORM_CONNXNS_H

#include <string>

namespace toolkit {
class CCds;
}

class CCDS_Connxns {
 public:
  // `reader` and `writer` may be the same client.
  CCDS_Connxns(const std::string& path, toolkit::CCds* reader, toolkit::CCds* writer)
      : path_(path), reader_(reader), writer_(writer) {}

  void SetPath(const std::string& path) { path_ = path; }
  const std::string& GetPath() const { return path_; }

  // Publishes connection `number` as the node path + "/" + number with the String leaves
  // "Address", "Host" and "User" (the Connections node is created when missing).
  // Returns 0 on success.
  int AddConnxn(const std::string& number, const std::string& address, const std::string& host,
                const std::string& user);
  // Withdraws one connection. Returns 0 on success.
  int RemoveConnxn(const std::string& number);
  // Withdraws every published connection. Returns 0 on success.
  int RemoveAllConnxns();

 private:
  std::string path_;
  toolkit::CCds* reader_;
  toolkit::CCds* writer_;
};

#endif  // WSGATE_PLATFORM_CONNXNS_H
