#include "admin/store.h"

#include "admin/texts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace korvalen::admin {

namespace {

constexpr int seconds_to_wait = 60;
constexpr useconds_t between_tries = 100'000;

// A child of what was killed dies with it, but not in the same moment.
constexpr int tries_of_the_dying = 10;

// Of a name, so that a number before it and one behind it fit too.
constexpr std::size_t longest_aside = 200;

std::string in_store(const std::string &name) {
  return std::string(store_directory) + "/" + name;
}

void make_if_missing(const std::string &path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0)
    checked(chmod(path.c_str(), mode), "cannot set the mode of " + path);
  else if (errno != EEXIST)
    fail("cannot make the directory " + path);
}

// Root's, and nobody else can write there.
void expect_trustworthy(const descriptor &directory) {
  struct stat status {};
  checked(fstat(directory.get(), &status), std::string("cannot look up ") + store_directory);
  if (status.st_uid != 0 || (status.st_mode & 022) != 0)
    throw failure(std::string(store_directory) +
                  " cannot be trusted: it must be root's and not be writable by others");
}

// The process that holds the lock, as the kernel's table of locks tells it.
std::string holder_of(const descriptor &directory) {
  struct stat status {};
  checked(fstat(directory.get(), &status), std::string("cannot look up ") + store_directory);
  std::array<char, 64> file;
  std::snprintf(file.data(), file.size(), "%02x:%02x:%lu", major(status.st_dev), minor(status.st_dev),
                static_cast<unsigned long>(status.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::array<std::string, 6> field; // NUMBER: FLOCK ADVISORY ACCESS PROCESS DEVICE:INODE
    for (std::string &one : field)
      words >> one;
    const std::string &process = field[4];
    if (field[1] != "FLOCK" || field[5] != file.data())
      continue;
    std::ifstream arguments("/proc/" + process + "/cmdline");
    std::string text((std::istreambuf_iterator<char>(arguments)), {});
    std::replace(text.begin(), text.end(), '\0', ' ');
    return "process " + process + " (" + visible(text.substr(0, text.find_last_not_of(' ') + 1)) + ")";
  }
  return "another process";
}

void lock(const descriptor &directory, int kind) {
  for (int tries = 0; flock(directory.get(), kind | LOCK_NB) != 0; ++tries) {
    if (errno != EWOULDBLOCK && errno != EINTR)
      fail(std::string("cannot lock ") + store_directory);
    if (tries * static_cast<int>(between_tries) >= seconds_to_wait * 1'000'000)
      throw failure(holder_of(directory) + " is at work with " + store_directory +
                    "; try again when it has ended");
    usleep(between_tries);
  }
}

std::optional<std::uint64_t> number_of(const std::string &name) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size())
    return std::nullopt;
  return number;
}

void flush_directory(const std::string &path) {
  const descriptor directory = open_for_reading(path);
  checked(fsync(directory.get()), "cannot flush " + path);
}

} // namespace

store::store(access wanted) {
  if (wanted == access::change)
    make_if_missing(store_directory, 0755);
  directory_ = descriptor(open(store_directory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory_) {
    if (errno == ENOENT && wanted != access::change)
      return;
    fail(std::string("cannot open the state directory ") + store_directory);
  }
  expect_trustworthy(directory_);
  if (wanted == access::share)
    lock(directory_, LOCK_SH);
  if (wanted != access::change)
    return;
  lock(directory_, LOCK_EX);
  // Without its own name, all that it holds would be lost.
  flush_directory(std::filesystem::path(store_directory).parent_path().string());
  make_if_missing(in_store("kept"), 0700);
  make_if_missing(in_store("aside"), 0700);
}

std::optional<std::string> store::read(const char *name) const {
  if (!directory_)
    return std::nullopt;
  const descriptor file(openat(directory_.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT)
    return std::nullopt;
  if (!file)
    fail("cannot read " + in_store(name));
  return read_whole(file, in_store(name));
}

std::optional<std::string> store::who_works() const {
  if (!directory_)
    return std::nullopt;
  for (int tries = 0; flock(directory_.get(), LOCK_SH | LOCK_NB) != 0; ++tries) {
    if (tries == tries_of_the_dying)
      return holder_of(directory_);
    usleep(between_tries);
  }
  flock(directory_.get(), LOCK_UN);
  return std::nullopt;
}

receipt store::read_receipt() const {
  const auto text = read("receipt.json");
  if (!text)
    return {};
  return receipt_from(*text, in_store("receipt.json"));
}

std::optional<journal> store::read_journal() const {
  const auto text = read("run.json");
  if (!text)
    return std::nullopt;
  return journal_from(*text, in_store("run.json"));
}

void store::flush() const {
  checked(fsync(directory_.get()), std::string("cannot flush ") + store_directory);
}

// Where it fails, nothing takes up room beside what stands there.
void store::write(const char *name, const std::string &text) const {
  const std::string beside = std::string(name) + ".new";
  try {
    write_beside(beside, text);
    checked(renameat(directory_.get(), beside.c_str(), directory_.get(), name),
            "cannot rename " + in_store(beside));
  } catch (...) {
    unlinkat(directory_.get(), beside.c_str(), 0);
    throw;
  }
  flush();
}

void store::write_beside(const std::string &beside, const std::string &text) const {
  const descriptor file(checked(
      openat(directory_.get(), beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644),
      "cannot write " + in_store(beside)));
  for (std::size_t done = 0; done < text.size();)
    done += static_cast<std::size_t>(checked(::write(file.get(), text.data() + done, text.size() - done),
                                             "cannot write " + in_store(beside)));
  checked(fchmod(file.get(), 0644), "cannot set the mode of " + in_store(beside));
  checked(fsync(file.get()), "cannot flush " + in_store(beside));
}

void store::write(const receipt &record) const {
  write("receipt.json", text_of(record));
}

void store::write(const journal &record) const {
  write("run.json", text_of(record));
}

void store::remove_journal() const {
  for (const char *const name : {"run.json", "run.json.new", "receipt.json.new"})
    if (unlinkat(directory_.get(), name, 0) != 0 && errno != ENOENT)
      fail("cannot remove " + in_store(name));
  flush();
}

std::string store::kept_path(std::uint64_t number) {
  return in_store("kept/" + std::to_string(number));
}

std::string store::aside_path(std::uint64_t run, const std::string &path) {
  const std::string name_there = path.substr(path.rfind('/') + 1).substr(0, longest_aside);
  const std::string wanted = in_store("aside/" + std::to_string(run) + "." + name_there);
  std::string name = wanted;
  for (int i = 2; look_up(open_tree_at(""), name); ++i)
    name = wanted + "." + std::to_string(i);
  return name;
}

void store::flush_aside() {
  flush_directory(in_store("aside"));
}

std::string store::make_run_directory() {
  remove_run_directory();
  std::string path = in_store("run");
  checked(mkdir(path.c_str(), 0700), "cannot make the directory " + path);
  return path;
}

void store::remove_run_directory() {
  const std::string path = in_store("run");
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error)
    throw failure("cannot remove " + path + ": " + error.message());
}

std::uint64_t store::next_kept() {
  std::uint64_t next = 1;
  for (const std::string &name : names_in(open_tree_at(""), in_store("kept")))
    if (const auto number = number_of(name))
      next = std::max(next, *number + 1);
  return next;
}

void store::remove_kept_but(const std::set<std::uint64_t> &needed) {
  for (const std::string &name : names_in(open_tree_at(""), in_store("kept"))) {
    const auto number = number_of(name);
    if (number && needed.contains(*number))
      continue;
    const std::string path = in_store("kept/" + name);
    if (std::remove(path.c_str()) != 0)
      fail("cannot remove " + path);
  }
}

void store::flush_kept() {
  flush_directory(in_store("kept"));
}

std::set<std::uint64_t> kept_by(const receipt &record) {
  std::set<std::uint64_t> numbers;
  for (const recorded_path &one : record.paths)
    if (one.kept)
      numbers.insert(*one.kept);
  return numbers;
}

} // namespace korvalen::admin
