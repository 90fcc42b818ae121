// Running code in a child process, also so that it can change nothing but what its root directory holds.
#pragma once

#include <functional>
#include <string>

namespace korvalen::admin {

// How confined code ended, with all that it printed.
struct outcome {
  int status = 0; // the exit status; of a death by a signal, 128 and its number
  std::string output;
  std::string errors;
};

struct child_settings {
  std::string root = {};     // its root directory; that of this process when empty
  std::string directory;     // its current directory, below that
  bool drops_powers = false; // of root's powers it keeps only those over files
  int kept_file = -1;        // one open file that it keeps beside the three
};

// Runs the code in a child process and waits for it. The child and what it starts have exactly the
// environment of every run (see set_surroundings), an empty standard input, and no other open files than the
// settings tell. They die with this process. The code returns its exit status or ends the process. Throws a
// failure when the child cannot be made.
outcome run_child(const child_settings &settings, const std::function<int()> &code);

// The same with that root directory and without those powers: the code can change nothing but what lies
// there.
outcome run_confined(const std::string &root, const std::string &directory, const std::function<int()> &code);

// What the installer runs in, in a rehearsal and on the disk alike: the environment PATH and LC_ALL and
// nothing else, and umask 022. The order of a listing depends on them, and the uninstall script on that.
void set_surroundings();

// Gives up, for good and for what is started from here, every power of root but those over the owners and
// modes of files.
void drop_powers();

} // namespace korvalen::admin
