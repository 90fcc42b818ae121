// The product's toolbox and Python scripts in an ArcGIS desktop installation.
#pragma once

namespace korvalen {

// Copies the toolbox "Korvalen Tools.tbx" and the scripts from the product's directory for the ENVI release
// that the environment names into the ArcGIS directory that it names, or removes them there. The paths hold
// backslashes, which are ordinary bytes of file names here. Copies are recorded in the uninstall script. 1
// when both were handled. 0 when a variable or a directory is missing: the install log tells which, and what
// was done before stays done. The process ends as fdfCopyDirFiles does when a file cannot be copied.
int envi_arcgis_install_uninstall(const char *theKorvalenDir, bool uninstall);

} // namespace korvalen
