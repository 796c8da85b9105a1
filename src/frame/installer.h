#pragma once

#include <cstdint>

#include <treekeeper/treekeeper.h>

namespace tk {

class CTreeKeeperInstaller final : public ITreeKeeperInstaller {
 public:
  int InstallerStep1(const char* argument) override;
  int InstallerStep2(const char* argument) override;
  int InstallerStep3(const char* argument) override;
  int InstallerStep4(const char* argument) override;
  int InstallerStep5(const char* argument) override;

 private:
  int32_t m_state = 1;  // set and never read
};

}  // namespace tk
