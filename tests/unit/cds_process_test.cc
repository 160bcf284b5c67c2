// The store shared between processes: durability across kill -9, a connection that crossed a
// fork, and files that are not (or not now) usable stores. Children are forked before any
// connection is opened in the parent, because an SQLite connection must not cross a fork.
#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::ScopedEnv;
using wsgate_test::StoreTest;

// A pipe whose ends close with the object.
struct Pipe {
  int fd[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe2(fd, O_CLOEXEC), 0); }
  ~Pipe() { closeEnd(0), closeEnd(1); }
  void closeEnd(int i) {
    if (fd[i] >= 0) close(fd[i]);
    fd[i] = -1;
  }
  // Writes of four bytes are atomic, so a read gets a whole number or the writer's close.
  bool readInt(int32_t& v) {
    ssize_t got;
    while ((got = read(fd[0], &v, sizeof v)) < 0 && errno == EINTR) {
    }
    return got == sizeof v;
  }
};

// A forked child running `body` (its result is the exit code). The destructor kills and
// reaps a child that is still running, so a failed assertion leaves no process behind.
class Child {
 public:
  explicit Child(const std::function<int()>& body) : pid_(fork()) {
    if (pid_ == 0) _exit(body());
    if (pid_ < 0) ADD_FAILURE() << "fork failed";
  }
  ~Child() {
    if (pid_ > 0) kill(pid_, SIGKILL), wait();
  }
  void kill9() { kill(pid_, SIGKILL); }
  // The exit code, or -signal when it was killed.
  int wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t pid_;
};

class CdsProcessTest : public StoreTest {
 protected:
  CdsProcessTest() { open_in_setup = false; }

  void openParent() {
    ASSERT_NE(store.open(), nullptr) << pcd_last_error();
    cds.set_handle(store.handle());
  }
  // Opening the store fails with an error that names `fragment`.
  void expectOpenFails(const std::string& fragment) {
    EXPECT_EQ(store.open(), nullptr);
    EXPECT_NE(std::string(pcd_last_error()).find(fragment), std::string::npos) << pcd_last_error();
  }
  void sql(const char* statements) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(store.path().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
  }
};

// A connection carried into a child by fork() is refused there (every call fails, and the
// child is told why), and the child's close leaves the parent's connection working.
TEST_F(CdsProcessTest, AConnectionThatCrossedAForkIsRefusedInTheChild) {
  openParent();
  api_status_t st;
  ASSERT_EQ(cds.add_node("/Before", st, "parent"), 0);
  Pipe err;
  Child child([&]() {
    dup2(err.fd[1], 2);
    CElement v;
    element_property_t prop;
    api_status_t child_st = API_STATUS_OK;
    const bool refused = cds.get_leaf("/Before/Children", child_st, v, prop) != 0 &&
                         child_st == API_STATUS_FAILED &&
                         cds.add_node("/FromChild", child_st, "child") != 0;
    { toolkit::CReadBatch batch(cds); }
    pcd_close(cds.handle());
    return refused ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
  err.closeEnd(1);
  char text[512] = {};
  ASSERT_GT(read(err.fd[0], text, sizeof text - 1), 0);
  EXPECT_NE(std::string(text).find("open it after fork()"), std::string::npos) << text;
  EXPECT_EQ(std::string(text).find('\n'), strlen(text) - 1) << "said more than once: " << text;
  EXPECT_EQ(cds.test_node("/FromChild", st), 0);
  EXPECT_EQ(st, API_STATUS_NO_NODE);
  ASSERT_EQ(cds.set_leaf("/Before/Value", CElement("after"), st, false, "parent"), 0);
  EXPECT_EQ(st, API_STATUS_OK);
}

TEST_F(CdsProcessTest, EveryAcknowledgedWriteSurvivesKillNine) {
  Pipe acks;
  Child child([&]() {
    acks.closeEnd(0);
    pcd_handle_t h = pcd_init(0);
    if (h == nullptr) return 2;
    toolkit::CCds c(h);
    api_status_t st;
    c.add_node("/Burst", st, "");
    for (int32_t i = 0; i < 1000000; ++i) {
      CElement v;
      v.set_int(i);
      if (c.set_leaf("/Burst/L" + std::to_string(i), v, st, false, "") != 0 ||
          st != API_STATUS_OK) {
        return 3;
      }
      if (write(acks.fd[1], &i, sizeof i) != sizeof i) return 4;
    }
    return 5;  // never reached: the parent kills the burst long before
  });
  acks.closeEnd(1);
  int32_t last = -1;
  for (int32_t i; last < 1000 && acks.readInt(i);) last = i;
  child.kill9();
  // Acknowledgements already in the pipe count too.
  for (int32_t i; acks.readInt(i);) last = i;
  EXPECT_EQ(child.wait(), -SIGKILL);
  ASSERT_GE(last, 1000);

  openParent();
  std::vector<std::string> paths;
  for (int32_t i = 0; i <= last; ++i) paths.push_back("/Burst/L" + std::to_string(i));
  std::vector<api_status_t> statuses;
  std::vector<CElement> values;
  std::vector<element_property_t> props;
  ASSERT_EQ(cds.get_leaves(paths, statuses, values, props), 0);
  for (int32_t i = 0; i <= last; ++i) {
    ASSERT_EQ(statuses[i], API_STATUS_OK) << paths[i] << " was acknowledged";
    ASSERT_EQ(values[i].to_int(), i);
  }
}

// Garbage and a directory are refused end to end (tests/e2e/cds_tool_test.py).
TEST_F(CdsProcessTest, ForeignDatabasesAndNewerStoresAreRefusedUnchanged) {
  auto bytes = [this] {
    std::ostringstream s;
    s << std::ifstream(store.path(), std::ios::binary).rdbuf();
    return s.str();
  };
  sql("CREATE TABLE theirs(x)");
  const std::string foreign = bytes();
  expectOpenFails("not a Data store");
  EXPECT_EQ(bytes(), foreign);

  unlink(store.path().c_str());
  ASSERT_NE(store.open(), nullptr);
  store.close();
  sql("PRAGMA user_version = 99");
  expectOpenFails("schema version 99");
  ScopedEnv missing_dir("CDS_PATH", store.dir() + "/no/such/dir/cds.db");
  expectOpenFails("cannot open");
}

// Another connection holds the store locked, as a process of the gateway could.
TEST_F(CdsProcessTest, AStoreLockedBeyondTheTimeOutIsRefusedThenUsable) {
  openParent();
  api_status_t st;
  ASSERT_EQ(cds.add_node("/Kept", st, ""), 0);
  store.close();
  cds.set_handle(nullptr);
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(store.path().c_str(), &db), SQLITE_OK);
  // Exclusive locking mode keeps even readers out of a WAL database.
  ASSERT_EQ(sqlite3_exec(db,
                         "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; "
                         "UPDATE meta SET value = value WHERE 0",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  {
    ScopedEnv timeout("CDS_BUSY_TIMEOUT_MS", "100");
    expectOpenFails("locked");
  }
  sqlite3_close(db);
  openParent();
  ASSERT_EQ(cds.test_node("/Kept", st), 0);
  EXPECT_EQ(st, API_STATUS_OK);
}

}  // namespace
