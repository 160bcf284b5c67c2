#include "devices/command_queue.h"

#include <gtest/gtest.h>

#include <deque>

#include "devices/command_payload.h"
#include "devices_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::typed;

const std::string kArea = "/Software/Commands/Dev";
const std::string kQueue = kArea + "/inpQueue";
const std::string kResultRoot =
    "<nsc3:getDeviceCmdResultResponse xmlns:nsc3=\"http://wsgate.local/ws/BACnetWSKiteC3\">";

// The device /Dev takes schema version 1, the command line "reset", the simple command
// "relay open" and the value command "limit kW"; its queue holds two commands; the next
// handle is 7. /Plain has no command area.
class CommandQueueTest : public wsgate_test::DevicesTest {
 protected:
  void SetUp() override {
    DevicesTest::SetUp();
    device("/Dev", "Pump", 192, 1);
    device("/Plain", "Plain", 192, 1);
    for (const char* entry : {"cmdLine/reset", "cmdBasic/relay/open", "cmdIval/limit/kW"}) {
      node(kArea + "/cmdList/" + entry);
    }
    point(kArea + "/WsdlVersion", typed("Unsigned", "1"), false);
    point(kQueue + "/maxCount", typed("Unsigned", "2"), false);
    node(kArea + "/outQueue");
    node("/Software/Commands/nextCommandID");
    setCounter(7);
  }

  void setCounter(int next) { leaf(kCommandCounterPath, typed("Integer", std::to_string(next))); }
  // The command whose choice is the XML `choice`, of schema `version`.
  const nsc3__sendCmd_s* cmd(const std::string& choice, int version = 1) {
    commands_.emplace_back();
    const std::string xml =
        "<c:sendCmd-s xmlns:c=\"http://wsgate.local/ws/BACnetWSKiteC3\">"
        "<cmdVersion>" +
        std::to_string(version) + "</cmdVersion>" + choice + "</c:sendCmd-s>";
    EXPECT_TRUE(payload_.read(xml, kCommandElement, commands_.back())) << xml;
    return &commands_.back();
  }
  const nsc3__sendCmd_s* line(const std::string& text, int version = 1) {
    return cmd("<cmdLine>" + text + "</cmdLine>", version);
  }
  const nsc3__sendCmd_s* basic(const std::string& name, const std::string& param) {
    return cmd("<cmdBasic><name>" + name + "</name><param>" + param + "</param></cmdBasic>");
  }

  // The result text of sendDeviceCmd; the handle goes to handle_.
  std::string send(const char* device, const nsc3__sendCmd_s* cmd, const char* opts = "") {
    const std::string path = device != nullptr ? device : "";
    nsc3__sendDeviceCmdResponse response;
    queueCommand(cds, device != nullptr ? &path : nullptr, cmd, options(opts), response);
    handle_ = response.cmdHandle;
    return response.result;
  }
  nsc3__getDeviceCmdResultResponse fetch(const char* device, int handle) {
    const std::string path = device != nullptr ? device : "";
    nsc3__getDeviceCmdResultResponse response;
    readCommandResult(soap, cds, device != nullptr ? &path : nullptr, handle, defaults, response);
    return response;
  }
  size_t queued() {
    std::vector<std::string> children;
    api_status_t status;
    cds.list_children(kQueue, children, status);
    return children.size();
  }
  void storeResult(int handle, const std::string& xml) {
    const std::string path = kArea + "/outQueue/" + std::to_string(handle);
    node(path);
    if (!xml.empty()) leaf(path + "/Value", CElement(xml));
  }

  int handle_ = -1;

 private:
  CommandPayload payload_;
  std::deque<nsc3__sendCmd_s> commands_;
};

TEST_F(CommandQueueTest, RefusalsComeInTheOrderOfTheChecks) {
  const std::string no_path = "? 8 Bad Path Syntax : No device path given";
  const std::string wrong = "? 30 Wrong Version : Wrong WSDL Version requested";
  const std::string not_supported = "? 29 Command Not Supported : No command support for this type";
  // clang-format off
  const struct { const char* device; const nsc3__sendCmd_s* cmd; std::string result; } cases[] = {
      {nullptr, line("reset"), no_path},
      {"", line("reset"), no_path},
      {"/Plain", line("reset"), "? 29 Command Not Supported : /Plain"},
      {"/Dev", line("reset", 2), wrong},
      {"/Dev", nullptr, not_supported},
      {"/Dev", cmd(""), not_supported},
      {"/Dev", cmd("<cmdText><name>reset</name><text>x</text></cmdText>"), not_supported},
      {"/Dev", line("reboot"), not_supported},
      {"/Dev", basic("relay", "close"), not_supported},
      {"/Dev", cmd("<cmdIval><name>relay</name><param>open</param></cmdIval>"), not_supported},
      // Names that the store's path rules would fold onto a listed entry.
      {"/Dev", line(""), not_supported},
      {"/Dev", line("reset/"), not_supported},
      {"/Dev", basic("relay", ""), not_supported},
      {"/Dev", cmd("<cmdBasic><name>relay</name></cmdBasic>"), not_supported},
      {"/Dev", basic("", "relay/open"), not_supported},
      {"/Dev", basic("relay//", "open"), not_supported},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(send(c.device, c.cmd), c.result) << (c.device != nullptr ? c.device : "null");
    EXPECT_EQ(handle_, 0);
  }
  EXPECT_EQ(send("/Dev", line("reboot"), "errorPrefix=E:"), "E:" + not_supported);
  EXPECT_EQ(queued(), 1u);  // maxCount only
  EXPECT_EQ(storedText(kCommandCounterPath), "7");

  // A device takes every version up to its own, an Unsigned one.
  const std::string version = kArea + "/WsdlVersion/Value";
  EXPECT_EQ(send("/Dev", line("reset", 0)), "");
  leaf(version, typed("Integer", "5"));
  EXPECT_EQ(send("/Dev", line("reset", 1)), wrong);
  api_status_t status;
  cds.clear_leaf(version, status, false, "");
  EXPECT_EQ(send("/Dev", line("reset", 1)), "? 9 Node Not Found : " + version);
}

// The capacity counts the queued commands beside "maxCount", and is read only when
// something is queued already.
TEST_F(CommandQueueTest, CommandsAreQueuedUnderConsecutiveHandles) {
  const std::string capacity = kQueue + "/maxCount/Value";
  api_status_t status;
  cds.clear_leaf(capacity, status, false, "");
  EXPECT_EQ(send("/Dev", basic("relay", "open")), "");
  EXPECT_EQ(handle_, 7);
  EXPECT_EQ(send("/Dev", line("reset")), "? 9 Node Not Found : " + capacity);
  leaf(capacity, typed("Unsigned", "2"));
  const std::string ival =
      "<cmdIval><name>limit</name><param>kW</param><num>0</num><psswd>0</psswd><iValue>300</"
      "iValue>";
  EXPECT_EQ(send("/Dev", cmd(ival + "</cmdIval>")), "");
  EXPECT_EQ(handle_, 8);
  EXPECT_EQ(storedText(kCommandCounterPath) + " " + storedKind(kCommandCounterPath),
            "9 persistent Integer");
  // The queued text is the command itself.
  EXPECT_NE(storedText(kQueue + "/8/Value").find(ival), std::string::npos);
  EXPECT_EQ(send("/Dev", line("reset")),
            "? 31 Device Busy or Not Available : Input Queue already full");
  cds.remove_node(kQueue, status, false, "");
  EXPECT_EQ(send("/Dev", line("reset")), "? 9 Node Not Found : " + capacity);
}

TEST_F(CommandQueueTest, AHandleIsNeverHandedOutTwice) {
  api_status_t status;
  cds.clear_leaf(kCommandCounterPath, status, false, "");
  EXPECT_EQ(send("/Dev", line("reset")),
            "? 9 Node Not Found : " + std::string(kCommandCounterPath));
  // A counter set back to a handle still queued: the handle is used up, the command refused.
  setCounter(3);
  EXPECT_EQ(send("/Dev", line("reset")), "");
  setCounter(3);
  EXPECT_EQ(send("/Dev", line("reset")), "? 16 Write Failed : " + kQueue + "/3/Value");
  EXPECT_EQ(handle_, 3);
  EXPECT_EQ(storedText(kCommandCounterPath), "4");
  setCounter(2147483647);
  EXPECT_EQ(send("/Dev", line("reset")), "");
  EXPECT_EQ(storedText(kCommandCounterPath), "-2147483648");  // wraps, never overflows
}

// Whatever store call fails, the queue ends with the command or without it, never with a
// node that holds no command, and a handle given out has moved the counter on.
TEST_F(CommandQueueTest, StoreFailuresLoseNothingAndReuseNoHandle) {
  bool saw_accepted = false, saw_write_failed = false;
  for (int skip = 0; skip < 30; ++skip) {
    setCounter(7);
    api_status_t status;
    cds.remove_node(kQueue + "/7", status, false, "");
    const std::string result =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return send("/Dev", line("reset")); });
    SCOPED_TRACE(std::to_string(skip) + ": " + result);
    EXPECT_EQ(queued() == 2, result.empty());
    if (result.empty()) {
      saw_accepted = true;
      EXPECT_EQ(storedText(kQueue + "/7/Value").rfind("<?xml", 0), 0u);
    }
    if (handle_ != 0) {
      EXPECT_EQ(storedText(kCommandCounterPath), "8");
      saw_write_failed |= result.rfind("? 16 Write Failed", 0) == 0;
    }
  }
  EXPECT_TRUE(saw_accepted && saw_write_failed);
}

TEST_F(CommandQueueTest, ResultsAreCopiedWhole) {
  storeResult(7, kResultRoot +
                     "<result>partly</result><cmdHandle>7</cmdHandle><numericStatus>"
                     "cmdSuccessOther</numericStatus><cmdStatus>Done</cmdStatus><cmdResults>"
                     "<cmdVersion>1</cmdVersion><resHarms><cdsName>/Dev/V</cdsName><displayName>"
                     "V</displayName><timeSample>1700000000000</timeSample><hData><frequency>50"
                     "</frequency><magnitude>230.5</magnitude><phase>0</phase></hData><hData>"
                     "<frequency>150</frequency><magnitude>7.5</magnitude><phase>30</phase>"
                     "</hData></resHarms></cmdResults></nsc3:getDeviceCmdResultResponse>");
  const nsc3__getDeviceCmdResultResponse r = fetch("/Dev", 7);
  EXPECT_EQ(r.result + " " + std::to_string(r.cmdHandle) + " " + r.cmdStatus, "partly 7 Done");
  EXPECT_EQ(r.numericStatus, nsc3__cmdNumStatus__cmdSuccessOther);
  ASSERT_NE(r.cmdResults, nullptr);
  ASSERT_EQ(r.cmdResults->__union_result, SOAP_UNION__nsc3__union_result_resHarms);
  const nsc3__harmonicResponse& harms = *r.cmdResults->union_result.resHarms;
  EXPECT_EQ(*harms.cdsName, "/Dev/V");
  EXPECT_EQ(harms.timeSample, 1700000000000);
  ASSERT_EQ(harms.hData.size(), 2u);
  EXPECT_EQ(harms.hData[1].frequency, 150);
  EXPECT_EQ(harms.hData[1].phase, 30.0f);
}

TEST_F(CommandQueueTest, ResultFailures) {
  storeResult(3, "");  // no Value yet
  storeResult(4, kResultRoot + "<cmdHandle>5</cmdHandle></nsc3:getDeviceCmdResultResponse>");
  storeResult(5, kResultRoot +
                     "<cmdHandle>5</cmdHandle><numericStatus>42</numericStatus>"
                     "</nsc3:getDeviceCmdResultResponse>");
  storeResult(6, "garbage");
  const std::string no_data = "? 22 No Data Available : " + kArea + "/outQueue/",
                    no_path = "? 8 Bad Path Syntax : No device path given";
  const std::string unreadable = "Could not deserialize results from device handler";
  const std::string aged = "No such cmdHandle exists, or its results were aged out";
  const auto invalid = nsc3__cmdNumStatus__cmdFailInvalid,
             bad_handle = nsc3__cmdNumStatus__cmdFailHandle,
             other = nsc3__cmdNumStatus__cmdFailOther;
  // clang-format off
  // device, handle -> result, numeric status, status text, handle answered
  const struct { const char* device; int handle; std::string result; nsc3__cmdNumStatus status; std::string text; int back; } cases[] = {
      {nullptr, 3, no_path, invalid, "No device path given", 0},
      {"", 3, no_path, invalid, "No device path given", 0},
      {"/Dev", 99, "? 32 Handle Invalid or Expired : /Dev for cmd #99", bad_handle, aged, 99},
      {"/Plain", -1, "? 32 Handle Invalid or Expired : /Plain for cmd #-1", bad_handle, aged, -1},
      {"/Dev", 3, no_data + "3/Value", other, "Could not read results", 3},
      {"/Dev", 4, no_data + "4/Value", other, unreadable, 4},  // another handle's
      {"/Dev", 5, no_data + "5/Value", other, unreadable, 5},  // bad status
      {"/Dev", 6, no_data + "6/Value", other, unreadable, 6},
  };
  // clang-format on
  for (const auto& c : cases) {
    const nsc3__getDeviceCmdResultResponse r = fetch(c.device, c.handle);
    EXPECT_EQ(r.result + " | " + r.cmdStatus + " " + std::to_string(r.cmdHandle),
              c.result + " | " + c.text + " " + std::to_string(c.back));
    EXPECT_EQ(r.numericStatus, c.status) << c.result;
    EXPECT_EQ(r.cmdResults, nullptr);
  }
  for (int skip = 0; skip < 6; ++skip) {
    const std::string result =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return fetch("/Dev", 6).result; });
    EXPECT_TRUE(result.rfind("? 32 ", 0) == 0 || result.rfind("? 22 ", 0) == 0) << result;
  }
}

}  // namespace
