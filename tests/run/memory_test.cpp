// One whole run under valgrind, which cannot run a binary that brings an address sanitizer of its own; the
// preset "coverage" leaves it out.

#include "run/whole_run.h"

using namespace whole_runs;

namespace {

class Memory : public whole_run {
protected:
  support::outcome check(const std::vector<std::string> &arguments) const {
    std::vector<std::string> command = {"valgrind",
                                        "--quiet",
                                        "--log-file=" + path("errors"),
                                        "--leak-check=full",
                                        "--errors-for-leak-kinds=definite,indirect,possible",
                                        "--error-exitcode=99",
                                        support::installer_path};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return support::run(command);
  }
};

} // namespace

TEST_F(Memory, HasNoErrorAndNoLeakInAWholeRun) {
  unpack_samples();
  EXPECT_THAT(check({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(support::read_file(path("errors")), "");
}

TEST_F(Memory, HasNoErrorInARefusedRun) {
  const support::outcome refused = check({product(), "/opt/a;b"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, testing::HasSubstr("\"/opt/a;b\" refused"));
  EXPECT_EQ(support::read_file(path("errors")), "");
}
