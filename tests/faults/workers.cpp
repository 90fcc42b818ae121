#include "faults/workers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace faults {

namespace {

struct worker {
  pid_t process;
  int report; // the end of a pipe from which its report comes
};

[[noreturn]] void broken(const char *what) {
  throw std::system_error(errno, std::generic_category(), std::string("set-up: ") + what);
}

void write_all(int file, const std::string &text) {
  for (std::size_t written = 0; written < text.size();) {
    const ssize_t got = write(file, text.data() + written, text.size() - written);
    if (got <= 0)
      _exit(1);
    written += static_cast<std::size_t>(got);
  }
}

std::string read_all(int file) {
  std::string text;
  std::array<char, 4096> block{};
  for (ssize_t got = 0; (got = read(file, block.data(), block.size())) > 0;)
    text.append(block.data(), static_cast<std::size_t>(got));
  return text;
}

std::string report_of(const tally &result) {
  std::ostringstream text;
  for (const auto &[name, count] : result.counts)
    text << "count " << count << " " << name << "\n";
  for (const std::string &finding : result.findings)
    text << "found " << finding << "\n";
  text << "end\n";
  return text.str();
}

void add_report(const std::string &report, tally &all) {
  if (!report.ends_with("end\n"))
    all.findings.emplace_back("set-up: a worker died");
  std::istringstream lines(report);
  for (std::string kind; lines >> kind && kind != "end";) {
    long count = 0;
    if (kind == "count")
      lines >> count;
    std::string text;
    std::getline(lines >> std::ws, text);
    if (kind == "count")
      all.counts[text] += count;
    else
      all.findings.push_back(text);
  }
}

worker start_worker(const std::function<void(share, tally &)> &work, share mine) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0)
    broken("pipe");
  const pid_t process = fork();
  if (process < 0)
    broken("fork");
  if (process > 0) {
    close(ends[1]);
    return {process, ends[0]};
  }
  tally result;
  try {
    work(mine, result);
  } catch (const std::exception &failed) {
    result.findings.emplace_back(failed.what());
  }
  write_all(ends[1], report_of(result));
  _exit(0);
}

} // namespace

tally in_processes(const std::function<void(share, tally &)> &work) {
  const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2U, 4U);
  std::vector<worker> workers;
  for (unsigned number = 0; number < count; ++number)
    workers.push_back(start_worker(work, {number, count}));

  tally all;
  for (const worker &one : workers) {
    add_report(read_all(one.report), all);
    close(one.report);
    waitpid(one.process, nullptr, 0);
  }
  return all;
}

} // namespace faults
