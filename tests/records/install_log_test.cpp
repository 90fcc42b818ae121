#include "korvalen/records/install_log.h"

#include "support/library.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace korvalen;

TEST(InstallLog, IsNotAttachedAtFirst) {
  EXPECT_EQ(install_log(), nullptr);
}

TEST(InstallLog, IsTheStreamThatWasAttachedUntilItIsDetached) {
  std::ostringstream first;
  std::ostringstream second;
  set_install_log(&first);
  EXPECT_EQ(install_log(), &first);
  log_line("Delete  ", "/a");
  set_install_log(&second);
  log_line("Delete  ", "/b");
  set_install_log(nullptr);
  EXPECT_EQ(install_log(), nullptr);
  log_line("Delete  ", "/c");
  EXPECT_EQ(first.str(), "Delete  /a\n");
  EXPECT_EQ(second.str(), "Delete  /b\n");
}

TEST(InstallLog, ReceivesTextsAndNumbers) {
  const support::attached_log log;
  log_line("INTO  = ", "/opt/k/a.sav");
  log_line("aNumber  = ", 17);
  log_line("\nerrno : ", -1);
  EXPECT_EQ(log.text(), "INTO  = /opt/k/a.sav\naNumber  = 17\n\nerrno : -1\n");
}

TEST(InstallLog, IsFlushedAtEachLine) {
  const support::attached_log log;
  log_line("first ", "x");
  EXPECT_EQ(log.flushes(), 1);
  log_line("second ", 2);
  EXPECT_EQ(log.flushes(), 2);
}
