// A fresh Data store for a test.
//
//   TempStore     a temporary directory with CDS_PATH pointing at "cds.db" inside it; open()
//                 creates the store with pcd_init(0). The destructor closes what it opened,
//                 restores CDS_PATH and removes the directory.
//   StoreTest     a GoogleTest fixture whose SetUp opens a TempStore: `cds` is a client on
//                 it, and pcd_default_handle() (used by CPath) is its handle. Tests that fork
//                 set `open_in_setup = false` and open after the fork (a SQLite connection
//                 must not cross one). node() and leaf() add to the store and fail the test
//                 unless the store accepts.
//   expectWholeStore(path)  fails the test unless the store file passes SQLite's integrity
//                 check and holds no leaf without its node.
#ifndef WSGATE_TESTS_UNIT_STORE_FIXTURE_H
#define WSGATE_TESTS_UNIT_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/cds.h"

namespace wsgate_test {

// Sets (or, with a null value, unsets) an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }
  ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;
  ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }

 private:
  std::string name_;
  std::optional<std::string> old_;
};

class TempStore {
 public:
  TempStore() : dir_(makeTempDir()), path_(dir_ + "/cds.db"), env_("CDS_PATH", path_) {}
  TempStore(const TempStore&) = delete;
  TempStore& operator=(const TempStore&) = delete;
  ~TempStore() {
    close();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  // Opens (creating) the store; null on failure, with pcd_last_error() saying why.
  pcd_handle_t open() {
    close();
    return handle_ = pcd_init(0);
  }
  void close() {
    if (handle_ != nullptr) pcd_close(handle_);
    handle_ = nullptr;
  }

  pcd_handle_t handle() const { return handle_; }
  const std::string& dir() const { return dir_; }    // the temporary directory
  const std::string& path() const { return path_; }  // the store file (CDS_PATH)

 private:
  static std::string makeTempDir() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/wsgate-store-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
    return pattern;
  }

  std::string dir_;
  std::string path_;
  ScopedEnv env_;
  pcd_handle_t handle_ = nullptr;
};

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!open_in_setup) return;
    ASSERT_NE(store.open(), nullptr) << pcd_last_error();
    cds.set_handle(store.handle());
  }
  void TearDown() override {
    cds.set_handle(nullptr);
    store.close();
  }
  void node(const std::string& path) {
    api_status_t status;
    ASSERT_EQ(cds.add_node(path, status, "test"), 0) << path;
    ASSERT_EQ(status, API_STATUS_OK) << path;
  }
  void leaf(const std::string& path, const toolkit::CElement& value, bool persist = false) {
    api_status_t status;
    ASSERT_EQ(cds.set_leaf(path, value, status, persist, "test"), 0) << path;
    ASSERT_EQ(status, API_STATUS_OK) << path;
  }

  bool open_in_setup = true;  // set to false in a derived constructor to open later
  TempStore store;
  toolkit::CCds cds;
};

inline void expectWholeStore(const std::string& path) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* q = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db,
                               "SELECT (SELECT count(*) FROM leaves WHERE node NOT IN "
                               "(SELECT path FROM nodes)), (SELECT * FROM pragma_integrity_check)",
                               -1, &q, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(q), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(q, 0), 0) << "no leaf without its node";
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(q, 1)), "ok");
  sqlite3_finalize(q);
  sqlite3_close(db);
}

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_STORE_FIXTURE_H
