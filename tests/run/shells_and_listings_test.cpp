// An installation of the samples whichever shell is /bin/sh and whichever ls is the first in the path.

#include "run/whole_run.h"

#include <stdexcept>
#include <sys/mount.h>

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;

namespace {

// A program may be several in one, and then goes by the name that it is called by.
struct program {
  const char *what;
  const char *path;
  const char *package; // Debian's
};
std::ostream &operator<<(std::ostream &out, const program &p) {
  return out << p.what;
}

const std::vector<program> shells = {
    {"Dash", "/bin/dash", "dash"},
    {"Bash", "/bin/bash", "bash"},
    {"Mksh", "/bin/mksh", "mksh"},
    {"Busybox", "/bin/busybox", "busybox"},
};
const std::vector<program> listers = {
    {"GnuLs", "/bin/ls", "coreutils"},
    {"BusyboxLs", "/bin/busybox", "busybox"},
    {"ToyboxLs", "/bin/toybox", "toybox"},
    {"UutilsLs", "/usr/lib/cargo/bin/coreutils/ls", "rust-coreutils"},
};

struct placed_files {
  std::string source; // below the product's extension tree
  std::string target; // below the ENVI directory
  std::vector<std::string> names;
};

const std::vector<placed_files> all_placed = {
    {"envi/custom_code",
     "custom_code",
     {"korvalen_modeling.sav", "korvalen_standard_modeling.sav",
      "quorin_core_tools_custom_code_extension.sav"}},
    {"envi/extensions", "extensions", {"korvalen_menu.sav", "korvalen_standard.sav"}},
    {"envi/resource/langcat",
     "resource/langcat",
     {"envigcpscollectwfui_eng.cat", "korvalen_default_eng.cat", "korvalen_error_catalog_eng.cat",
      "korvalen_menu_eng.cat", "korvalenuiwf_eng.cat"}},
    {"envi/resource/templates", "resource/templates", {"korvalen_report.tpl"}},
    {"envi/resource/templates/tasks",
     "resource/templates/tasks/Korvalen",
     {"korvalen_coherence.task", "korvalen_geocode.task"}},
    {"envi/resource/bitmaps", "resource/bitmaps", {"korvalen_16.bmp", "korvalen_32.bmp"}},
    {"envi/resource/filterfuncs", "resource/filterfuncs", {"korvalen_speckle_filter.pro"}},
    {"envi/save", "save", {"korvalen_modeling.sav", "quorin_core_tasks.sav"}},
    {"envi/classic/save_add", "classic/save_add", {"korvalen_classic.sav", "korvalen_classic_menu.sav"}},
    {"envi/classic/filt_func", "classic/filt_func", {"korvalen_sensor.flt"}},
    {"envi/classic/save", "classic/save", {"korvalen_classic_core.sav"}},
    {"idl/lib/hook",
     "idl86/lib/hook",
     {"korvalen_batch_init.sav", "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
      "korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav",
      "korvalen_run_single_dataset_batch.sav", "quorin_core_essentials.sav"}},
    {"idl/bin/bin.linux.x86_64",
     "idl86/bin/bin.linux.x86_64",
     {"libKorvalen_general_dll.dlm", "libKorvalen_general_dll.so"}},
    {"idl/help", "idl86/help", {"idl_catalog.xml", "korvalen_routines.html"}},
    {"idl/help/Korvalen", "idl86/help/online_help/Subsystems/Korvalen", {"index.html", "tools.html"}},
};

const std::vector<std::string> new_directories = {
    "idl86/help/online_help", "idl86/help/online_help/Subsystems",
    "idl86/help/online_help/Subsystems/Korvalen", "resource/filterfuncs",
    "resource/templates/tasks/Korvalen"};

const std::vector<std::string> all_deleted = {
    "classic/save_add/envi_korvalen_itools.sav",
    "classic/save_add/evf_display_ps.sav",
    "custom_code/envi5_vec_pkg.sav",
    "custom_code/quorin_modeling.sav",
    "custom_code/ts_analyzer_50.sav",
    "extensions/korvalen_import_standard.sav",
    "extensions/ps_analyzer_51.sav",
    "extensions/quorin_core_tools_custom_code_extension.sav",
    "idl86/bin/bin.linux.x86_64/libKorvalenIDLExtensions.dlm",
    "idl86/bin/bin.linux.x86_64/libKorvalenIDLExtensions.so",
    "idl86/lib/hook/korvalen_run_tds_list.sav",
};

// Exactly these lines: in the C locale every shell and every ls sorts by bytes.
constexpr const char *all_recorded = R"(rm /etc/quorin/Korvalen_configuration.ini
rm ENVI/custom_code/korvalen_modeling.sav
rm ENVI/custom_code/korvalen_standard_modeling.sav
rm ENVI/custom_code/quorin_core_tools_custom_code_extension.sav
rm ENVI/extensions/korvalen_core_extensions.sav
rm ENVI/extensions/korvalen_menu.sav
rm ENVI/extensions/korvalen_standard.sav
rm ENVI/resource/langcat/korvalen_menu_eng.cat
rm ENVI/resource/templates/korvalen_report.tpl
rm ENVI/resource/templates/tasks/Korvalen/korvalen_coherence.task
rm ENVI/resource/templates/tasks/Korvalen/korvalen_geocode.task
rm ENVI/resource/bitmaps/korvalen_16.bmp
rm ENVI/resource/bitmaps/korvalen_32.bmp
rm ENVI/resource/filterfuncs/korvalen_speckle_filter.pro
rm ENVI/save/korvalen_modeling.sav
rm ENVI/classic/save_add/korvalen_classic.sav
rm ENVI/classic/save_add/korvalen_classic_menu.sav
rm ENVI/classic/filt_func/korvalen_sensor.flt
rm ENVI/classic/save/korvalen_classic_core.sav
rm ENVI/idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav
rm ENVI/idl86/lib/hook/korvalen_run_single_dataset_batch.sav
rm ENVI/idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm
rm ENVI/idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.so
rm ENVI/idl86/help/korvalen_routines.html
rm ENVI/idl86/help/online_help/Subsystems/Korvalen/index.html
rm ENVI/idl86/help/online_help/Subsystems/Korvalen/tools.html
rm -rf PRODUCT
)";

std::string present(const program &p) {
  if (!fs::exists(p.path))
    throw std::runtime_error(std::string("test set-up: there is no ") + p.path +
                             "; please install the Debian package " + p.package);
  return p.path;
}

// What /bin/sh leads to is another shell while one lives.
class other_shell {
public:
  explicit other_shell(const std::string &shell) {
    if (mount(shell.c_str(), usual_.c_str(), nullptr, MS_BIND, nullptr) != 0)
      throw std::system_error(errno, std::generic_category(), "test set-up: cannot mount over " + usual_);
  }
  ~other_shell() { umount2(usual_.c_str(), MNT_DETACH); }
  other_shell(const other_shell &) = delete;
  other_shell &operator=(const other_shell &) = delete;

private:
  std::string usual_ = fs::canonical("/bin/sh").string();
};

// Which file the shell runs as ls: an ls of its own would have no path.
std::string ls_of_the_shell() {
  return support::run({"/bin/sh", "-c", "command -v ls"}).out;
}

void patch(support::tree &envi, const std::string &script, const std::string &anchor,
           const std::string &block) {
  const std::string original = envi.at(script).content;
  envi[script + "_original"] = {"file", 0644, original};
  envi[script] = {"file", 0755, replaced(original, anchor, block + anchor)};
}

class AnyShellAndAnyLs : public whole_run, public testing::WithParamInterface<std::tuple<program, program>> {
protected:
  AnyShellAndAnyLs() : earlier_path_(std::getenv("PATH")), shell_(present(std::get<0>(GetParam()))) {
    fs::create_directory(path("bin"));
    fs::create_symlink(present(std::get<1>(GetParam())), path("bin/ls"));
    setenv("PATH", (path("bin") + ":" + earlier_path_).c_str(), 1);
    unpack_samples();
  }
  ~AnyShellAndAnyLs() override { setenv("PATH", earlier_path_.c_str(), 1); }

  // What the samples' ENVI becomes.
  support::tree expected_envi() const {
    support::tree expected = snapshot(envi());
    for (const std::string &name : new_directories)
      expected[name] = {"directory", 0755, ""};
    for (const placed_files &p : all_placed)
      for (const std::string &name : p.names)
        expected[p.target + "/" + name] = {"file", 0755, read_file(source(p.source + "/" + name))};
    for (const std::string &name : all_deleted)
      expected.erase(name);
    for (const char *name : {"bin/envi", "bin/envi_rt", "bin/envitaskengine"})
      patch(expected, name, "if [ \"$IDL_DIR\" = \"\" ]; then\n", envi_block("/etc/quorin"));
    for (const char *name : {"idl86/bin/idl", "idl86/bin/idlde"})
      patch(expected, name, "INSTALL_DIR=$IDL_DIR/bin/", idl_block("/etc/quorin"));
    return expected;
  }

private:
  std::string earlier_path_;
  other_shell shell_;
};

} // namespace

TEST_P(AnyShellAndAnyLs, LeaveTheSameInstallationOfTheSamples) {
  const auto &[shell, lister] = GetParam();
  ASSERT_TRUE(fs::equivalent("/bin/sh", shell.path)) << "/bin/sh is not " << shell.path;
  ASSERT_EQ(ls_of_the_shell(), path("bin/ls") + "\n");
  const support::tree expected = expected_envi();
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(changes(expected, snapshot(envi())), "");
  EXPECT_EQ(recorded(), all_recorded);
  EXPECT_EQ(read_file(configuration_in_etc), configuration_of(product()));
  EXPECT_EQ(changes({}, snapshot("/etc/quorin")),
            "new file 644 Korvalen_configuration.ini\nnew file 705 korvalen_uninstall.sh\n");
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
}

INSTANTIATE_TEST_SUITE_P(, AnyShellAndAnyLs,
                         testing::Combine(testing::ValuesIn(shells), testing::ValuesIn(listers)),
                         [](const auto &instance) {
                           return std::string(std::get<0>(instance.param).what) + "And" +
                                  std::get<1>(instance.param).what;
                         });
