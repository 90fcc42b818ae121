// The product's configuration file, through which the product finds its own directories.
#pragma once

namespace korvalen {

// Writes "Korvalen_configuration.ini" into the init directory, which is made with all its parents, and
// records it in the uninstall script. With a null init directory the file goes into the product directory,
// and one trailing "/" is then cut off the caller's product_dir in place. False, with a line on standard
// error and nothing recorded, when the file cannot be created. Later failures to write are not reported.
bool write_korvalen_configuration(char *product_dir, const char *init_dir);

} // namespace korvalen
