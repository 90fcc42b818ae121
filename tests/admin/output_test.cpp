#include "admin/admin_run.h"
#include "support/child.h"
#include "support/disturbance.h"

#include <sys/syscall.h>

using namespace admin_runs;
using support::Ended;

namespace {

void write_to_closed_pipe(int stream) {
  int ends[2];
  must(pipe(ends), "pipe");
  close(ends[0]);
  must(dup2(ends[1], stream), "dup2");
}

class Output : public admin_run {
protected:
  Output() { make_host(); }

  // The command with an output that the process brings upon itself before it becomes the program.
  support::outcome command_into(const std::function<void()> &output, const std::string &name,
                                const char *option = "--color=never") const {
    return support::call([&] {
      output();
      execl(support::admin_path, support::admin_path, name.c_str(), option, product().c_str(), envi().c_str(),
            nullptr);
      return 127;
    });
  }
};

TEST_F(Output, WhoseReaderIsGoneLeavesEachCommandItsWorkAndItsStatus) {
  const exact_tree before = everything();
  const auto no_reader = [] { write_to_closed_pipe(STDOUT_FILENO); };
  for (const char *option : {"--json", "--color=never"}) {
    EXPECT_THAT(command_into(no_reader, "plan", option), Ended(2, "", ""));
    EXPECT_EQ(differences(before, everything()), "");
    EXPECT_THAT(command_into(no_reader, "install", option), Ended(0, "", ""));
    EXPECT_THAT(command_into(no_reader, "verify", option), Ended(0, "", ""));
    EXPECT_EQ(support::read_file(in_envi("save/k.sav")), "envi/save/k.sav\n");
    EXPECT_THAT(command_into(no_reader, "uninstall", option), Ended(0, "", ""));
    EXPECT_EQ(differences(before, everything()), "");
  }
}

TEST_F(Output, IsWholeAlthoughASignalInterrupts) {
  EXPECT_THAT(support::call([] {
                support::disturb({SYS_write, EINTR, [](int count) { return count == 1; }});
                execl(support::admin_path, support::admin_path, "--version", nullptr);
                return 127;
              }),
              Ended(0, "korvalen_admin 1.0.0\n", ""));
}

TEST_F(Output, OfErrorsWhoseReaderIsGoneLeavesARefusalItsStatus) {
  fs::remove_all(in_envi("idl86"));
  const exact_tree before = everything();
  EXPECT_EQ(command_into([] { write_to_closed_pipe(STDERR_FILENO); }, "install").status, 1);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Output, ThatCannotBeWrittenIsAFailureOfACommandWhoseWorkIsDoneAndOnRecord) {
  const exact_tree before = everything();
  const auto full = [] { must(dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO), "dup2"); };
  const auto ended_but_for = [](const std::string &status) {
    return Ended(
        1, "",
        "korvalen_admin: cannot write to standard output: No space left on device; without that, the "
        "status would be " +
            status + "\n");
  };
  EXPECT_THAT(command_into(full, "install"), ended_but_for("0"));
  EXPECT_THAT(command("verify"), Ended(0, "\nEverything is as it should be.\n", ""));
  support::write_file(in_envi("save/k.sav"), "edited");
  EXPECT_THAT(command_into(full, "verify"), ended_but_for("2"));
  support::write_file(in_envi("save/k.sav"), "envi/save/k.sav\n", 0755);
  EXPECT_THAT(command_into(full, "uninstall"), ended_but_for("0"));
  EXPECT_EQ(differences(before, everything()), "");
}

} // namespace
