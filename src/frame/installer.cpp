#include "frame/installer.h"

namespace tk {

int CTreeKeeperInstaller::InstallerStep1(const char*) { return 0; }
int CTreeKeeperInstaller::InstallerStep2(const char*) { return 1; }
int CTreeKeeperInstaller::InstallerStep3(const char*) { return 0; }
int CTreeKeeperInstaller::InstallerStep4(const char*) { return 0; }
int CTreeKeeperInstaller::InstallerStep5(const char*) { return 0; }

}  // namespace tk
