#include "support/files.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>

namespace support {

namespace {

[[noreturn]] void broken(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), "test set-up: " + what);
}

entry describe(const fs::directory_entry &found) {
  if (found.is_symlink())
    return {"link", 0, fs::read_symlink(found.path()).string()};
  if (found.is_directory())
    return {"directory", mode_of(found.path()), ""};
  return {"file", mode_of(found.path()), read_file(found.path())};
}

} // namespace

void write_file(const fs::path &path, std::string_view bytes, mode_t mode) {
  if (path.has_parent_path())
    fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << bytes << std::flush;
  if (!file)
    broken("cannot write " + path.string());
  if (chmod(path.c_str(), mode) != 0)
    broken("cannot chmod " + path.string());
}

std::string read_file(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    broken("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

mode_t mode_of(const fs::path &path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0)
    broken("cannot stat " + path.string());
  return status.st_mode & 07777;
}

std::ostream &operator<<(std::ostream &out, const entry &e) {
  return out << e.kind << " " << std::oct << e.mode << std::dec << " \"" << e.content << '"';
}

tree snapshot(const fs::path &directory) {
  tree result;
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(directory))
    result[found.path().lexically_relative(directory).string()] = describe(found);
  return result;
}

std::string file_names(const tree &t) {
  std::string names;
  for (const auto &[name, e] : t)
    if (e.kind != "directory")
      names += name + "\n";
  return names;
}

scratch_test::scratch_test() : previous_(fs::current_path()) {
  std::string name = (fs::temp_directory_path() / "korvalen_test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    broken("cannot make a scratch directory");
  directory_ = name;
  fs::permissions(directory_, fs::perms(0755));
  fs::current_path(directory_);
  umask(022);
}

scratch_test::~scratch_test() {
  std::error_code ignored;
  fs::current_path(previous_, ignored);
  fs::remove_all(directory_, ignored);
}

} // namespace support
