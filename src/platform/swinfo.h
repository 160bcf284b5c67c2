// Software information: an application's node in the store, its status and error, and
// nodes made from templates.
//
// An application node holds the leaves "AppStatus" and "AppError" (Integer).
#ifndef WSGATE_PLATFORM_SWINFO_H
#define WSGATE_PLATFORM_SWINFO_H

#include <string>

namespace toolkit {
class CCds;
}

enum AppStatuses {
  APP_STATUS_UNKNOWN = 0,
  APP_STATUS_BUSY = 1,
  APP_STATUS_STOPPED = 2,
  APP_STATUS_FAILED = 3,
  APP_STATUS_RUNNING = 4,
};

enum AppErrors {
  APP_ERROR_NONE = 0,
};

// One leaf of a template: the leaf path relative to the template's node ("/Value") and its
// default text. A list ends with {nullptr, nullptr}.
struct tagnval {
  const char* tag;
  const char* val;
};

// A template record: the class the record belongs to, the node relative to the bound path
// ("" for the bound path itself, "/ReplyURI") and its leaves.
struct swinfo_template_t {
  const char* base_path;
  const char* node;
  const tagnval* leaves;
};

class CCds_SwInfo {
 public:
  CCds_SwInfo(const std::string& path, toolkit::CCds* cds) : path_(path), cds_(cds) {}

  void SetPath(const std::string& path) { path_ = path; }
  const std::string& GetPath() const { return path_; }
  // The writer's source text of every node and leaf written from now on ("" at first).
  void SetSource(const std::string& source) { source_ = source; }

  // Write path + "/AppStatus" and path + "/AppError", creating the node when missing.
  // Return 0 on success.
  int SetAppStatus(AppStatuses status);
  int SetAppError(AppErrors error);
  // Creates path + template.node (and ancestors) and writes each leaf of the template.
  // "/Value" gets the type named by the template's "/ValueType" leaf (String when it has
  // none or names "None"), texts "true"/"false" in other leaves are Boolean, everything
  // else is String. Returns 0 on success.
  int FillSwInfoNode(const swinfo_template_t& tmpl);
  // Writes path + suffix + "/Value" as Integer, creating the node when missing. Returns 0
  // on success.
  int SetIntValue(const char* suffix, int value);
  // Adds `increment` to path + suffix + "/Value" (a missing or unreadable value counts as
  // 0; the sum wraps at 32 bits) and writes it back as Integer, creating the node when
  // missing. Returns 0 on success.
  int UpdateIntValue(const char* suffix, int increment);
  // Writes a message of this application to standard error (one line) and to the system
  // log (severity Info, the last component of the path as application name).
  void PrintString(const std::string& text);

 private:
  std::string path_;
  toolkit::CCds* cds_;
  std::string source_;
};

#endif  // WSGATE_PLATFORM_SWINFO_H
