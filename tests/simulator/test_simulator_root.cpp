// The QVRP32_ROOT that qvsim prepares: what the library needs to find the
// adapter, and a test's own INI file left as it was.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "qvsim/simulator.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(SimulatorRoot, PortLinkRegistryAndIniFiles) {
  const char* const tags[] = {"#QV--VCI+#", "#QV--VCI#", "#QV--VCI++#"};
  for (int format : {0, 1, 2}) {
    SCOPED_TRACE("format " + std::to_string(format));
    char dir[] = "/tmp/qvsim-root.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string root = dir;
    const std::string vendor_ini = root + "/Windows/QVRP32.ini";
    std::filesystem::create_directories(root + "/Windows");
    std::ofstream(vendor_ini) << "[VendorInformation]\nName=the test's own\n";

    qvsim::Config config;
    config.frame_format = format;
    qvsim::Simulator sim(config);
    ASSERT_TRUE(sim.Start());
    qvsim::PreparedRoot prepared;
    ASSERT_TRUE(sim.PrepareRoot(root, 9, &prepared));

    EXPECT_EQ(std::filesystem::read_symlink(root + "/dosdevices/com9").string(), sim.SlavePath());
    EXPECT_EQ(prepared.port_target, sim.SlavePath());
    const std::string registry = ReadFile(root + "/registry.reg");
    EXPECT_EQ(registry.rfind("REGEDIT4\n", 0), 0u);
    EXPECT_NE(registry.find("USBSER000\"=\"COM9\"\n"), std::string::npos) << registry;
    // The arbiter's device path, regedit-escaped: \??\USB#VID_0483&PID_5740<tag>...
    const std::string device = R"("COM9"="\\??\\USB#VID_0483&PID_5740)" + std::string(tags[format]) + "6&";
    EXPECT_NE(registry.find(device), std::string::npos) << registry;
    EXPECT_EQ(prepared.device_tag, tags[format]);

    EXPECT_EQ(ReadFile(vendor_ini), "[VendorInformation]\nName=the test's own\n");
    EXPECT_NE(ReadFile(root + "/ProgramData/QV/Corvane/COMConfig.ini").find("\nSN=QV00012345\n"),
              std::string::npos);
    ASSERT_EQ(prepared.ini_files.size(), 2u);
    EXPECT_FALSE(prepared.ini_files[0].written);  // kept
    EXPECT_TRUE(prepared.ini_files[1].written);
    std::filesystem::remove_all(root);
  }
}

}  // namespace
