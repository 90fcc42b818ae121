// Whole runs of the real binary, each with an /etc of its own.
#pragma once

#include "support/child.h"
#include "support/files.h"
#include "support/private_etc.h"
#include "support/process.h"
#include "support/programs.h"
#include "support/tree_changes.h"
#include "support/variables.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace whole_runs {

namespace fs = std::filesystem;
using support::Ended;

inline const std::string usage = "wrong input parameter list :   korvalen_dir  envi_dir   \n";
inline const std::string progress = "\n   Installing ENVI extensions... ";
inline const std::string installed = progress + "Done\n\n";

inline const std::string script_in_etc = "/etc/quorin/korvalen_uninstall.sh";
inline const std::string configuration_in_etc = "/etc/quorin/Korvalen_configuration.ini";

// What a run in the system layout leaves in an empty /etc.
inline const std::string made_in_etc =
    "new directory 755 quorin\nnew file 644 quorin/Korvalen_configuration.ini\n"
    "new file 705 quorin/korvalen_uninstall.sh\n";

// The five lines on standard error with which a copy ends the tool.
inline std::string copy_error(const std::string &source, const std::string &target) {
  return "ERROR while copying " + source + "\n to " + target + "\n\nPlease check path and privileges!\n\n";
}

inline std::string configuration_of(const std::string &product) {
  return product + "/auxiliary/key_files/\n" + product + "/auxiliary/mandatory/\n" + product + "/work/\n" +
         product + "/bin/\n" + product + "/auxiliary/map_files/\n" + product +
         "/auxiliary/description_files/\n" + product + "/auxiliary/xml_parameters_definition/\n" + product +
         "/auxiliary/description_files/\n" + product + "/auxiliary/description_01_files/\n" + product +
         "/auxiliary/xml_schema_files/\n" + "LSBF\nACTIVE\n1\nNaN\n\n";
}

inline std::string envi_block(const std::string &init_dir) {
  return "if [ \"$KORVALEN_INIT_DIR\" = \"\" ]; then\n   KORVALEN_INIT_DIR=" + init_dir +
         "\n   export KORVALEN_INIT_DIR\nfi\n\n";
}

inline std::string idl_block(const std::string &init_dir) {
  return "KORVALEN_INIT_DIR=" + init_dir + "\nexport KORVALEN_INIT_DIR\n\n";
}

// Text with every occurrence of `from` replaced.
inline std::string replaced(std::string text, const std::string &from, const std::string &to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

// As a checkout with umask 022 lays it out: modes 0755 and 0644.
inline void copy_tree(const fs::path &from, const fs::path &to) {
  fs::create_directories(to);
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(from)) {
    const fs::path target = to / found.path().lexically_relative(from);
    if (found.is_directory())
      fs::create_directory(target);
    else
      support::write_file(target, support::read_file(found.path()),
                          support::mode_of(found.path()) & 0100 ? 0755 : 0644);
  }
}

inline void give_to_other_user(const fs::path &path) {
  const auto give = [](const fs::path &one) {
    if (lchown(one.c_str(), 65534, 65534) != 0)
      throw std::system_error(errno, std::generic_category(), "test set-up: cannot chown " + one.string());
  };
  give(path);
  if (fs::is_directory(fs::symlink_status(path)))
    for (const fs::directory_entry &found : fs::recursive_directory_iterator(path))
      give(found.path());
}

// The test's current directory is cwd; the product and ENVI lie in host, beside it.
class whole_run : public support::scratch_test {
protected:
  whole_run() {
    setenv("LC_ALL", "C", 1);
    fs::create_directory(path("host"));
    fs::create_directory(path("cwd"));
    fs::current_path(path("cwd"));
  }

  std::string host() const { return path("host"); }
  std::string product() const { return path("host/korvalen"); }
  std::string envi() const { return path("host/envi54"); }

  support::outcome install(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), support::installer_path);
    return support::run(arguments);
  }

  // As user and group 65534, from a copy of the binary that this user can reach. A binary instrumented for
  // coverage writes its counts when it ends: it does so where this user may.
  support::outcome install_as_other_user(std::vector<std::string> arguments) const {
    const std::string reachable = path("korvalen_installer");
    fs::copy_file(support::installer_path, reachable, fs::copy_options::overwrite_existing);
    fs::create_directory(path("counts"));
    fs::permissions(path("counts"), fs::perms::all);
    arguments.insert(arguments.begin(), {"env", "GCOV_PREFIX=" + path("counts"), reachable});
    return support::run(support::as_other_user(arguments));
  }

  void unpack_samples() const {
    copy_tree(fs::path(support::samples_path) / "product", product());
    copy_tree(fs::path(support::samples_path) / "envi54", envi());
  }

  // A file of the product's extension tree, for example "envi/save/k.sav", that holds its own path.
  void ship(const std::string &extension) const {
    support::write_file(product() + "/auxiliary/envi_extensions_54/" + extension, extension + "\n");
  }
  std::string source(const std::string &extension) const {
    return product() + "/auxiliary/envi_extensions_54/" + extension;
  }

  // The uninstall script of the system layout, with the paths of the two trees shortened.
  std::string recorded() const {
    return replaced(replaced(support::read_file(script_in_etc), product(), "PRODUCT"), envi(), "ENVI");
  }

  // An ENVI with its five launch scripts, an IDL and nothing else.
  void make_envi(const std::string &directory) const {
    for (const char *name : {"envi", "envi_rt", "envitaskengine"})
      support::write_file(directory + "/bin/" + name, envi_script(name), 0755);
    for (const char *name : {"idl", "idlde"})
      support::write_file(directory + "/idl86/bin/" + name, idl_script(name), 0755);
  }
  void make_envi() const { make_envi(envi()); }

  static std::string envi_script(const std::string &name) {
    return "#!/bin/sh\nE=/envi\nif [ -z \"$IDL_DIR\" ]; then\n   IDL_DIR=$E/idl\nfi\nexec " + name + "\n";
  }
  static std::string patched_envi_script(const std::string &name, const std::string &init_dir) {
    return "#!/bin/sh\nE=/envi\n" + envi_block(init_dir) +
           "if [ -z \"$IDL_DIR\" ]; then\n   IDL_DIR=$E/idl\nfi\nexec " + name + "\n";
  }
  static std::string idl_script(const std::string &name) {
    return "#!/bin/sh\nIDL_DIR=/idl\nINSTALL_DIR=$IDL_DIR/bin\nexec $INSTALL_DIR/" + name + "\n";
  }
  static std::string patched_idl_script(const std::string &name, const std::string &init_dir) {
    return "#!/bin/sh\nIDL_DIR=/idl\n" + idl_block(init_dir) +
           "INSTALL_DIR=$IDL_DIR/bin\nexec $INSTALL_DIR/" + name + "\n";
  }

private:
  support::private_etc etc_;
  // These would change what the listing, its order or the launch scripts say.
  support::free_variables variables_{{"LC_ALL", "QUOTING_STYLE", "KORVALEN_INIT_DIR", "IDL_DIR"}};
};

} // namespace whole_runs
