#include "plans/case_pool.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace plans {

namespace {

struct file_closer {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using report_file = std::unique_ptr<std::FILE, file_closer>;

struct running_case {
  unsigned number;
  report_file report;
};

[[noreturn]] void broken(const char *what) {
  throw std::system_error(errno, std::generic_category(), std::string("set-up: ") + what);
}

// Texts of any bytes, each with a NUL behind it; findings begin with "!".
void write_report(std::FILE *file, const case_result &result) {
  for (const std::string &name : result.counted)
    std::fwrite(name.c_str(), 1, name.size() + 1, file);
  for (const std::string &finding : result.findings)
    std::fwrite(("!" + finding).c_str(), 1, finding.size() + 2, file);
  std::fflush(file);
}

std::string text_of(std::FILE *file) {
  std::string text;
  std::rewind(file);
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file))
    text += static_cast<char>(byte);
  return text;
}

void add_report(const running_case &one, int status, tally &all) {
  const std::string place = "case " + std::to_string(one.number) + ": ";
  if (status != 0)
    all.findings.push_back(place + "set-up: its process died, wait status " + std::to_string(status));
  std::istringstream texts(text_of(one.report.get()));
  for (std::string text; std::getline(texts, text, '\0');)
    if (text.starts_with('!'))
      all.findings.push_back(place + text.substr(1));
    else
      ++all.counts[text];
}

case_result run_caught(unsigned number, const std::function<case_result(unsigned)> &run) {
  try {
    return run(number);
  } catch (const std::exception &problem) {
    return {{}, {problem.what()}};
  }
}

std::pair<pid_t, running_case> start(unsigned number, const std::function<case_result(unsigned)> &run) {
  running_case started{number, report_file(std::tmpfile())};
  if (!started.report)
    broken("a file for a report");
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process < 0)
    broken("fork");
  if (process == 0) {
    write_report(started.report.get(), run_caught(number, run));
    _exit(0);
  }
  return {process, std::move(started)};
}

} // namespace

tally run_cases(const std::vector<unsigned> &numbers, unsigned width,
                const std::function<case_result(unsigned number)> &run) {
  tally all;
  std::map<pid_t, running_case> running;
  for (auto next = numbers.begin(); next != numbers.end() || !running.empty();) {
    if (next != numbers.end() && running.size() < width) {
      running.insert(start(*next++, run));
      continue;
    }
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    if (ended < 0)
      broken("wait");
    if (auto one = running.extract(ended))
      add_report(one.mapped(), status, all);
  }
  return all;
}

} // namespace plans
