// Facts of the unit that the API tells: levels, serial number, addresses, and the echo packet.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "api/capabilities.h"
#include "api/ping.h"
#include "device/audio_levels.h"
#include "tests/support/files.h"

namespace {

TEST(AudioLevels, AreTheDriversLineBetweenBrackets) {
    EXPECT_EQ(audioLevels(), "[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]") << "no driver at all";
    const std::pair<const char *, const char *> rows[] = {
        {"1,2,3\n", "[1,2,3]"}, {"7", "[7]"}, {"", "[]"}, {"\n4\n", "[]"}};
    for (const auto &[line, text] : rows) {
        writeFile("/dev/audiolevels", line);
        EXPECT_EQ(audioLevels(), text);
    }
    std::filesystem::remove("/dev/audiolevels");
    writeFile("/dev/proxyimg", "");  // knows no ioctl, which leaves the channels undelivered
    std::string others;
    for (int channel = 1; channel < 16; ++channel) {
        others += ",-1431655766";
    }
    EXPECT_EQ(audioLevels(), "[0" + others + "]");
}

TEST(SerialNumber, EndsAtTheNextBlankOrTheEnd) {
    EXPECT_EQ(serialNumber("quiet serialnum=A-17 root=/dev/mmcblk0"), "A-17");
    EXPECT_EQ(serialNumber("serialnum=A 17"), "A");
    EXPECT_EQ(serialNumber("quiet serialnum=B9"), "B9");
    EXPECT_EQ(serialNumber("serialnum="), "");
    EXPECT_EQ(serialNumber("quiet serial=9"), "");
}

TEST(InterfaceAddress, IsADottedQuadAlsoWithoutTheInterface) {
    EXPECT_EQ(interfaceAddress("lo"), "127.0.0.1");
    EXPECT_EQ(interfaceAddress("eth1"), "0.0.0.0");
    EXPECT_EQ(interfaceAddress("a name that is far too long for any interface"), "0.0.0.0");
}

TEST(EchoRequest, CarriesItsIdentifierAndAChecksumThatMakesTheSumAllOnes) {
    for (int identifier = 0; identifier <= 0xFFFF; ++identifier) {
        const auto packet = makeEchoRequest(static_cast<std::uint16_t>(identifier));
        std::uint32_t sum = 0;
        for (std::size_t i = 0; i < packet.size(); i += 2) {
            sum += packet[i] * 256U + packet[i + 1];
        }
        while (sum > 0xFFFF) {
            sum = (sum & 0xFFFF) + (sum >> 16);
        }
        ASSERT_EQ(sum, 0xFFFFU) << identifier;
        EXPECT_EQ(packet[4] * 256 + packet[5], identifier);
        EXPECT_EQ(std::string(packet.begin(), packet.begin() + 2), std::string("\x08\0", 2));
        EXPECT_EQ(std::string(packet.begin() + 8, packet.begin() + 12), "0123");
        EXPECT_EQ(packet[6] + packet[7], 0);
        EXPECT_EQ(packet[62], 0x30 + 54);
        EXPECT_EQ(packet[63], 0);
    }
}

}  // namespace
