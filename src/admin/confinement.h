// Running code in the view so that it can change nothing else.
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

// Runs the code in a child process whose root directory is `root` and whose current directory is `directory`
// of it, and waits for it. The child and what it starts have no open files but the three, of which standard
// input is empty; exactly the environment of every run (see set_surroundings); and of root's powers only
// those over files. They die with this process. The code returns its exit status or ends the process. Throws
// a failure when the child cannot be made.
outcome run_confined(const std::string &root, const std::string &directory, const std::function<int()> &code);

// What the installer runs in, in a rehearsal and on the disk alike: the environment PATH and LC_ALL and
// nothing else, and umask 022. The order of a listing depends on them, and the uninstall script on that.
void set_surroundings();

// Gives up, for good and for what is started from here, every power of root but those over the owners and
// modes of files.
void drop_powers();

} // namespace korvalen::admin
