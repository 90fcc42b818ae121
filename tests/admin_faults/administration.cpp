#include "admin_faults/administration.h"

#include "faults/own_mounts.h"
#include "support/files.h"
#include "support/programs.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace faults {

namespace fs = std::filesystem;

namespace {

constexpr time_t long_ago = 1'000'000'000;

// Enough of the samples for everything that an installation does to a file.
constexpr std::string_view chosen[] = {
    "envi54/bin/envi",
    "envi54/bin/envi_rt",
    "envi54/bin/envitaskengine",
    "envi54/custom_code/korvalen_modeling.sav",
    "envi54/custom_code/quorin_modeling.sav",
    "envi54/extensions/korvalen_menu.sav",
    "envi54/extensions/ps_analyzer_51.sav",
    "envi54/extensions/vegetation_suite.sav",
    "envi54/idl86/bin/idl",
    "envi54/idl86/bin/idlde",
    "envi54/idl86/lib/hook/quorin_core_essentials.sav",
    "envi54/version.txt",
    "product/auxiliary/Korvalen_config.xml",
    "product/auxiliary/envi_extensions_54/envi/custom_code/korvalen_modeling.sav",
    "product/auxiliary/envi_extensions_54/envi/custom_code/quorin_core.sav",
    "product/auxiliary/envi_extensions_54/envi/extensions/korvalen_menu.sav",
    "product/auxiliary/envi_extensions_54/envi/extensions/korvalen_standard.sav",
    "product/auxiliary/envi_extensions_54/envi/resource/templates/tasks/korvalen_geocode.task",
    "product/auxiliary/envi_extensions_54/idl/lib/hook/quorin_core_essentials.sav",
};

int opened(int file, const char *what) {
  if (file < 0)
    throw std::system_error(errno, std::generic_category(), std::string("set-up: ") + what);
  return file;
}

void add_directories(host_tree &host, const fs::path &path) {
  for (fs::path parent = path.parent_path(); !parent.empty(); parent = parent.parent_path())
    host.try_emplace(parent.string(), host_entry{"directory", 0755, 0, 0, "", "", {}, 0});
}

void add_file(host_tree &host, const std::string &path, const std::string &bytes, mode_t mode) {
  add_directories(host, path);
  host[path] = {"file", mode, 0, 0, bytes, "", {}, long_ago};
}

} // namespace

bool enter_own_host() {
  if (!enter_own_mounts(false))
    return false;
  const fs::path root = own_root;
  for (const char *const name : {"cwd", "opt", state_dir, "var_tmp"})
    fs::create_directory(root / name);
  const fs::path state = root / state_dir;
  return mount("tmpfs", state.c_str(), "tmpfs", 0, "mode=0755") == 0 &&
         mount(state.c_str(), "/var/lib", nullptr, MS_BIND, nullptr) == 0 &&
         mount((root / "var_tmp").c_str(), "/var/tmp", nullptr, MS_BIND, nullptr) == 0;
}

bool can_enter_own_host() {
  const pid_t child = fork();
  if (child == 0)
    _exit(geteuid() == 0 && enter_own_host() ? 0 : 1);
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

host_tree fresh_host() {
  host_tree host;
  for (const std::string_view name : chosen) {
    const fs::path source = fs::path(support::samples_path) / name;
    add_file(host, "opt/" + std::string(name), support::read_file(source), support::mode_of(source));
  }
  for (const char *const top : {"cwd", "opt", "etc", state_dir, "var_tmp"})
    host[top] = {"directory", 0755, 0, 0, "", "", {}, 0};
  host["opt/envi54/extensions"].mode = 0775;
  host["opt/envi54/extensions"].group = 5;

  host_entry &script = host["opt/envi54/bin/envi"];
  script.mode = 0750;
  script.owner = 7;
  script.attributes["trusted.note"] = "made by hand";
  host["opt/envi54/idl86/bin/idl"].mode = 04755;
  // A file that is replaced has another name.
  host_entry &menu = host["opt/envi54/extensions/korvalen_menu.sav"];
  menu.mode = 0640;
  menu.first_name = "opt/envi54/extensions/korvalen_menu.sav";
  host[second_name] = menu;
  return host;
}

void upgrade_product(host_tree &host) {
  const std::string extensions = "opt/product/auxiliary/envi_extensions_54/envi/extensions/";
  host.at(extensions + "korvalen_menu.sav").content += "next release\n";
  host.erase(extensions + "korvalen_standard.sav");
  add_file(host, extensions + "korvalen_next.sav", "new in the next release\n", 0644);
}

program administration(const std::string &command) {
  static const int executable =
      opened(open(STATIC_ADMIN_PATH, O_RDONLY | O_CLOEXEC), "cannot open " STATIC_ADMIN_PATH);
  static const int output = opened(memfd_create("output", MFD_CLOEXEC), "output");
  if (ftruncate(output, 0) != 0 || lseek(output, 0, SEEK_SET) != 0)
    throw std::system_error(errno, std::generic_category(), "set-up: output");
  program tool;
  tool.file = executable;
  tool.arguments = {"korvalen_admin", command, "--local", "/mnt/opt/product", "/mnt/opt/envi54"};
  tool.directory = (fs::path(own_root) / "cwd").string();
  tool.output = output;
  return tool;
}

family_outcome administer(const std::string &command) {
  return run_family(administration(command), {});
}

std::string printed_by(const program &tool) {
  std::array<char, 65'536> text{};
  const ssize_t size = pread(tool.output, text.data(), text.size(), 0);
  return {text.data(), static_cast<std::size_t>(size < 0 ? 0 : size)};
}

} // namespace faults
