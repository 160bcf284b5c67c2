// `cds handler`: a device handler for the demo gateway. It watches the input queue of every
// command area under /Software/Commands, answers each queued command as a simple field
// device would, stores the answer in the area's output queue under the command's handle,
// removes the command it consumed and, after a while, the answers nobody fetched.
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "devices/command_payload.h"
#include "devices/command_queue.h"
#include "platform/path.h"
#include "platform/vtx.h"
#include "tools/commands.h"

namespace cdstool {
namespace {

constexpr const char* kCommandsNode = "/Software/Commands";
// The odd harmonics a meter reports, of a 50 Hz supply.
constexpr int kHarmonics[] = {1, 3, 5, 7, 9, 11, 13};
constexpr int kSupplyHz = 50;

volatile sig_atomic_t g_stop = 0;

void requestStop(int) {
  g_stop = 1;
}

// What the handler answers for one command: a status, its text, and the payload (a text,
// a harmonics record, or none).
struct Answer {
  nsc3__cmdNumStatus status = nsc3__cmdNumStatus__cmdSuccess;
  std::string status_text = "Done";
  std::string text;
  bool harmonics = false;
  std::string cds_name;  // the harmonics record
  std::string display_name;
  int64_t time_sample = 0;
  std::vector<nsc3__harmonic_s> harmonic_data;
};

Answer refuse(nsc3__cmdNumStatus status, const std::string& why) {
  Answer answer;
  answer.status = status;
  answer.status_text = why;
  return answer;
}

std::string textOf(const std::string* text) {
  return text != nullptr ? *text : std::string();
}

bool readLeaf(toolkit::CCds& cds, const std::string& path, toolkit::CElement& value) {
  api_status_t status;
  element_property_t prop;
  return cds.get_leaf(path, status, value, prop) == 0 && status == API_STATUS_OK;
}

// A meter's harmonics of the point `point` ("Voltage", "Current"): the point's value as
// the fundamental and falling magnitudes above it.
Answer harmonicsOf(toolkit::CCds& cds, const std::string& device, const std::string& point) {
  const std::string path = joinPath(device, point);
  toolkit::CElement value;
  toolkit::CElement name;
  if (!readLeaf(cds, path + "/Value", value)) {
    return refuse(nsc3__cmdNumStatus__cmdFailUnable, "No " + point + " to measure");
  }
  Answer answer;
  answer.harmonics = true;
  answer.cds_name = path;
  const std::string display =
      readLeaf(cds, joinPath(device, "DisplayName"), name) ? name.to_string() : device;
  answer.display_name = display + " " + point + " harmonics";
  answer.time_sample = vtx_UTCtime64();
  const double fundamental = value.to_double();
  for (int order : kHarmonics) {
    nsc3__harmonic_s harmonic;
    harmonic.frequency = order * kSupplyHz;
    harmonic.magnitude = static_cast<float>(order == 1 ? fundamental : fundamental * 0.1 / order);
    harmonic.phase = static_cast<float>((order - 1) * 15 % 360);
    answer.harmonic_data.push_back(harmonic);
  }
  return answer;
}

Answer answerCommand(toolkit::CCds& cds, const std::string& device, const nsc3__sendCmd_s& cmd) {
  if (cmd.cmdVersion != nsc3__cmdSchemaVersion__1) {
    return refuse(nsc3__cmdNumStatus__cmdFailInvalid,
                  "Unknown command version " + std::to_string(cmd.cmdVersion));
  }
  Answer answer;
  switch (cmd.__union_cmd) {
    case SOAP_UNION__nsc3__union_cmd_cmdLine:
      answer.text = textOf(cmd.union_cmd.cmdLine) + ": done";
      return answer;
    case SOAP_UNION__nsc3__union_cmd_cmdBasic: {
      if (cmd.union_cmd.cmdBasic == nullptr) break;
      const std::string name = textOf(cmd.union_cmd.cmdBasic->name);
      const std::string param = textOf(cmd.union_cmd.cmdBasic->param);
      if (name == "harmonics") {
        if (param == "voltage") return harmonicsOf(cds, device, "Voltage");
        if (param == "current") return harmonicsOf(cds, device, "Current");
        break;
      }
      answer.text = name + " " + param + ": done";
      return answer;
    }
    case SOAP_UNION__nsc3__union_cmd_cmdIval:
      if (cmd.union_cmd.cmdIval == nullptr) break;
      answer.text = textOf(cmd.union_cmd.cmdIval->name) + " " +
                    textOf(cmd.union_cmd.cmdIval->param) + " set to " +
                    std::to_string(cmd.union_cmd.cmdIval->iValue);
      return answer;
    default:
      break;
  }
  return refuse(nsc3__cmdNumStatus__cmdFailInvalid, "Unknown command");
}

// The result record of `answer`, in the form the data server reads; false when it cannot
// be written.
bool resultText(int handle, Answer& answer, std::string& text) {
  nsc3__getDeviceCmdResultResponse result;
  nsc3__cmdResult_s payload;
  nsc3__harmonicResponse harmonics;
  result.cmdHandle = handle;
  result.numericStatus = answer.status;
  result.cmdStatus = answer.status_text;
  if (answer.status == nsc3__cmdNumStatus__cmdSuccess) {
    payload.cmdVersion = nsc3__cmdSchemaVersion__1;
    if (answer.harmonics) {
      harmonics.cdsName = &answer.cds_name;
      harmonics.displayName = &answer.display_name;
      harmonics.timeSample = answer.time_sample;
      harmonics.hData = answer.harmonic_data;
      payload.__union_result = SOAP_UNION__nsc3__union_result_resHarms;
      payload.union_result.resHarms = &harmonics;
    } else {
      payload.__union_result = SOAP_UNION__nsc3__union_result_resText;
      payload.union_result.resText = &answer.text;
    }
    result.cmdResults = &payload;
  }
  return CommandPayload().write(result, kResultElement, text);
}

// The decimal handle a queue entry is named by; false for any other name ("maxCount").
bool handleOf(const std::string& name, int& handle) {
  if (name.empty() || name.size() > 11) return false;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(name.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || value < INT32_MIN || value > INT32_MAX) return false;
  if (std::to_string(value) != name) return false;  // "007", "+7": not a handle's name
  handle = static_cast<int>(value);
  return true;
}

// Answers one queued command; a command whose answer cannot be stored stays queued for the
// next pass.
void handleCommand(Context& ctx, const std::string& area, const std::string& device, int handle) {
  const std::string handle_text = std::to_string(handle);
  const std::string queued = area + "/inpQueue/" + handle_text;
  toolkit::CElement stored;
  // The data server makes the node before it writes the command: not there yet.
  if (!readLeaf(ctx.cds, queued + "/Value", stored)) return;
  Answer answer;
  {
    CommandPayload payload;
    nsc3__sendCmd_s command;
    answer = payload.read(stored.to_string(), kCommandElement, command)
                 ? answerCommand(ctx.cds, device, command)
                 : refuse(nsc3__cmdNumStatus__cmdFailInvalid, "Unreadable command");
  }
  const std::string result_node = area + "/outQueue/" + handle_text;
  std::string text;
  if (!resultText(handle, answer, text)) {
    reportError(ctx.err, result_node, "the result cannot be written as XML");
    return;
  }
  // The result appears whole, and the command leaves the queue with it: a client polling
  // in between would read a result node without its Value.
  toolkit::CWriteBatch batch(ctx.cds);
  api_status_t status;
  int rc = ctx.cds.add_node(result_node, status, ctx.source);
  if (rc == 0 && status == API_STATUS_OK) {
    rc = ctx.cds.set_leaf(result_node + "/Value", toolkit::CElement(text), status, false,
                          ctx.source);
  }
  if (rc != 0 || status != API_STATUS_OK) {
    batch.rollback();
    reportError(ctx.err, result_node, statusReason(rc, status));
    return;
  }
  rc = ctx.cds.remove_node(queued, status, false, ctx.source);
  if (rc != 0 || status != API_STATUS_OK) reportError(ctx.err, queued, statusReason(rc, status));
  rc = batch.commit();
  if (rc != 0) {
    reportError(ctx.err, result_node, statusReason(rc, API_STATUS_OK));
    return;
  }
  ctx.out << "#" << handle << " " << device << ": " << answer.status_text << "\n" << std::flush;
}

std::vector<std::string> childNames(toolkit::CCds& cds, const std::string& node) {
  std::vector<std::string> children;
  api_status_t status;
  if (cds.list_children(node, children, status) != 0 || status != API_STATUS_OK) return {};
  for (std::string& child : children) child = baseName(child);
  return children;
}

// Removes the results stored more than `keep_ms` ago.
void ageResults(Context& ctx, const std::string& area, int64_t keep_ms) {
  const int64_t now = vtx_UTCtime64();
  const std::string queue = area + "/outQueue";
  for (const std::string& name : childNames(ctx.cds, queue)) {
    const std::string node = joinPath(queue, name);
    toolkit::CElement stored;
    if (!readLeaf(ctx.cds, node + "/Value", stored)) continue;
    const timeval& written = stored.get_time();
    if (now - vtx_UNIXtoVTXtime64(&written) <= keep_ms) continue;
    api_status_t status;
    int rc = ctx.cds.remove_node(node, status, false, ctx.source);
    if (rc != 0 || status != API_STATUS_OK) reportError(ctx.err, node, statusReason(rc, status));
  }
}

// One pass over every command area: the queued commands in handle order, then the aging.
void handleAll(Context& ctx, int64_t keep_ms) {
  for (const std::string& name : childNames(ctx.cds, kCommandsNode)) {
    const std::string area = joinPath(kCommandsNode, name);
    std::string device;
    CPath::DottedPathToNodePath(name, device);
    std::vector<int> handles;
    for (const std::string& entry : childNames(ctx.cds, area + "/inpQueue")) {
      int handle;
      if (handleOf(entry, handle)) handles.push_back(handle);
    }
    std::sort(handles.begin(), handles.end());
    for (int handle : handles) handleCommand(ctx, area, device, handle);
    ageResults(ctx, area, keep_ms);
  }
}

void sleepMs(long ms) {
  timespec delay{ms / 1000, (ms % 1000) * 1000000};
  // A signal cuts the sleep short; the loop then sees the stop request.
  nanosleep(&delay, nullptr);
}

// The value of a count option, `fallback` when it is not given; a usage error outside
// [low, high].
long countOption(const ParsedArgs& args, const char* option, const char* fallback, long low,
                 long high) {
  const size_t count = parseCount(option, args.value(option, fallback));
  if (count < static_cast<size_t>(low) || count > static_cast<size_t>(high)) {
    throw UsageError(std::string(option) + " takes " + std::to_string(low) + " to " +
                     std::to_string(high));
  }
  return static_cast<long>(count);
}

int runHandler(Context& ctx, const ParsedArgs& args) {
  const long interval_ms = countOption(args, "--interval", "200", 1, 60000);
  const int64_t keep_ms = int64_t{countOption(args, "--keep", "3600", 0, 366 * 86400)} * 1000;
  if (args.has("--once")) {
    handleAll(ctx, keep_ms);
    return kExitOk;
  }
  struct sigaction action {};
  action.sa_handler = requestStop;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  ctx.out << "handling the command queues of " << kCommandsNode << "\n" << std::flush;
  while (g_stop == 0) {
    handleAll(ctx, keep_ms);
    sleepMs(interval_ms);
  }
  return kExitOk;
}

}  // namespace

Command handlerCommand() {
  return {"handler",
          "[--once] [--interval MS] [--keep SECONDS]",
          "Runs the demo's device handler: answers the commands queued in every command area\n"
          "under /Software/Commands (docs/demo.md) as a simple field device would, stores\n"
          "each answer in the area's outQueue under the command's handle and removes the\n"
          "command. Command lines and simple commands get a text, \"harmonics\" commands a\n"
          "meter's harmonics, anything else cmdFailInvalid. Prints one line per command.\n"
          "Runs until SIGTERM or SIGINT.\n"
          "  --once            one pass over the queues, then exit\n"
          "  --interval MS     pause between passes (default 200)\n"
          "  --keep SECONDS    remove answers older than this (default 3600)",
          {{"--once", false}, {"--interval", true}, {"--keep", true}},
          0,
          0,
          runHandler};
}

}  // namespace cdstool
