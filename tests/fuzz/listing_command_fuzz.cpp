// The listing's quoting: the shell sees exactly the bytes of the pattern, and of them only the wildcards of
// the last component are the shell's. A small reader of shell words tells for every input, the real shell for
// every input too, but for many of them at once.

#include "fuzz.h"
#include "support/files.h"

#include "korvalen/files/listing_command.h"

#include <cstdio>
#include <cstdlib>

namespace {

using fuzz::require;
using fuzz::require_equal;

constexpr std::string_view wildcards = "*?[";

std::size_t start_of_last_component(std::string_view pattern) {
  return pattern.rfind('/') + 1; // 0 without a slash
}

// A pattern that the shell or `ls` would take for something else than a path is made one.
std::string as_path(const std::string &pattern) {
  const bool starts_with_wildcard =
      !pattern.empty() && std::string_view("*?[").find(pattern[0]) != std::string_view::npos;
  const bool may_match_an_option = starts_with_wildcard && pattern.find('/') == std::string::npos;
  const bool is_descriptor = !pattern.empty() && pattern.find_first_not_of("0123456789") == std::string::npos;
  return (pattern.starts_with('-') || may_match_an_option || is_descriptor ? "./" : "") + pattern;
}

// One word of a command, each byte with a mark: '!' when the shell matches file names with it, else a blank.
struct shell_word {
  std::string bytes;
  std::string marks;
};

// Reads the words of a simple command. Knows single quotes, the backslash, blanks and wildcards, and takes
// every other unquoted byte that means something to a shell for a failure of the quoting.
class word_reader {
public:
  explicit word_reader(std::string_view text) : rest_(text) {}

  shell_word next() {
    while (rest_.starts_with(' '))
      rest_.remove_prefix(1);
    shell_word word;
    const std::size_t all = rest_.size();
    while (!rest_.empty() && rest_[0] != ' ' && rest_[0] != '>')
      read_byte(word, rest_.size() == all);
    return word;
  }

  std::string_view rest() const { return rest_; }

private:
  void read_byte(shell_word &word, bool at_start) {
    const char byte = rest_[0];
    rest_.remove_prefix(1);
    if (byte == '\'')
      read_quoted(word);
    else if (byte == '\\')
      read_escaped(word);
    else
      read_plain(word, byte, at_start);
  }

  void read_quoted(shell_word &word) {
    const std::size_t end = rest_.find('\'');
    require(end != std::string_view::npos, "every quotation ends");
    word.bytes += rest_.substr(0, end);
    word.marks.append(end, ' ');
    rest_.remove_prefix(end + 1);
  }

  void read_escaped(shell_word &word) {
    require(!rest_.empty() && rest_[0] != '\n', "a backslash is followed by the byte that it quotes");
    word.bytes += rest_[0];
    word.marks += ' ';
    rest_.remove_prefix(1);
  }

  static void read_plain(shell_word &word, char byte, bool at_start) {
    constexpr std::string_view special = "|&;<>()$`\"{}";
    require(static_cast<unsigned char>(byte) > ' ' && byte != '\x7f', "control characters are quoted");
    require(special.find(byte) == std::string_view::npos, "bytes that the shell acts on are quoted");
    require(!at_start || (byte != '#' && byte != '~'),
            "bytes that the shell acts on at a word's start are quoted");
    word.bytes += byte;
    word.marks += wildcards.find(byte) == std::string_view::npos ? ' ' : '!';
  }

  std::string_view rest_;
};

std::string wanted_marks(const std::string &path) {
  std::string marks(path.size(), ' ');
  for (std::size_t i = start_of_last_component(path); i < path.size(); ++i)
    if (wildcards.find(path[i]) != std::string_view::npos)
      marks[i] = '!';
  return marks;
}

void check_words(const std::string &pattern) {
  const std::string command = korvalen::listing_command(pattern.c_str(), "./out");
  word_reader reader(command);
  require_equal(reader.next().bytes, "ls", "the command runs ls");
  const shell_word word = reader.next();
  require_equal(word.bytes, as_path(pattern), "the shell sees the bytes of the pattern");
  require_equal(word.marks, wanted_marks(as_path(pattern)),
                "the wildcards of the last component are the shell's");
  require(word.bytes.empty() || word.bytes.find_first_not_of("0123456789") != std::string::npos,
          "the word before the redirection is not the number of a file descriptor");
  require_equal(reader.rest(), ">./out 2>/dev/null", "nothing but the redirections follows the pattern");
}

// Many commands for one run of the real shell, in which `ls` is a function that writes down what it was
// given: the number of its arguments and each of them, all ended by NUL bytes.
class shell_batch {
public:
  ~shell_batch() { run(); }

  // The pattern as it stands, without matching, and then a file of this name matched by a pattern.
  void add(const std::string &pattern) {
    add_command("set -f", pattern, as_path(pattern));
    if (const std::string name = file_name(pattern); !name.empty()) {
      const std::string directory = fuzz::scratch_path("names/" + std::to_string(count_) + "/");
      support::write_file(directory + name, "");
      add_command("set +f", directory + name + "*", directory + name);
    }
    if (++count_ == 300)
      run();
  }

private:
  void add_command(const char *setting, const std::string &pattern, const std::string &expected) {
    commands_ +=
        std::string(setting) + "\n" + korvalen::listing_command(pattern.c_str(), output_.c_str()) + "\n";
    expected_ += pattern.empty() ? std::string("0\0", 2) : std::string("1\0", 2) + expected + '\0';
  }

  // The pattern's last component without its wildcards: any bytes that a file may be named. Empty when there
  // are none.
  static std::string file_name(const std::string &pattern) {
    std::string name = pattern.substr(start_of_last_component(pattern), 255);
    std::erase_if(name, [](char byte) { return wildcards.find(byte) != std::string_view::npos; });
    return name == "." || name == ".." ? "" : name;
  }

  void run() {
    if (count_ == 0)
      return;
    support::write_file(script_,
                        "exec 3>'" + words_ + "'\nls() { printf '%s\\0' \"$#\" \"$@\" >&3; }\n" + commands_);
    require(std::system(("sh '" + script_ + "'").c_str()) == 0, "the shell runs the commands");
    require_equal(support::read_file(words_), expected_, "the real shell sees the bytes of the patterns");
    support::fs::remove_all(fuzz::scratch_path("names"));
    commands_.clear();
    expected_.clear();
    count_ = 0;
  }

  const std::string script_ = fuzz::scratch_path("script");
  const std::string words_ = fuzz::scratch_path("words");
  const std::string output_ = fuzz::scratch_path("out");
  std::string commands_;
  std::string expected_;
  int count_ = 0;
};

} // namespace

void fuzz::check(std::string_view input) {
  const std::string pattern = visible(input);
  check_words(pattern);
  static shell_batch batch;
  batch.add(pattern);
}
