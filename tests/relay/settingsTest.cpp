// The settings file, the INI file of the library, and the cache file.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "relay-tool/Feed.h"
#include "relay-tool/InstrumentFile.h"
#include "relay/Settings.h"
#include "tempDir.h"

namespace ZceRelay {
namespace {

class RelaySettings : public testing::Test {
  protected:
    std::string Write(const std::string& name, const std::string& text) {
        std::ofstream(m_folder / name) << text;
        return m_folder / name;
    }
    // Why it is refused, without the folder; empty if it is not.
    std::string Refused(const std::string& text) {
        const std::string path = Write("relay.ini", text);
        m_settings = {};
        std::string error;
        const bool bGood = ReadSettings(path, m_settings, error);
        EXPECT_EQ(bGood, error.empty()) << error;
        for (size_t at = 0; (at = error.find(m_folder.path())) != std::string::npos;) {
            error.erase(at, m_folder.path().size() + 1);
        }
        return error;
    }

    velatest::TempDir m_folder;
    Settings m_settings;
};

TEST_F(RelaySettings, SayWhereAndWho) {
    EXPECT_EQ(Refused("[nats]\nserver = nats://a:4222,nats://b:4222\nuser = u\n"
                      "password = \"p;w#d\"\ntls = yes\n"),
              "");
    EXPECT_EQ(m_settings.server, "nats://a:4222,nats://b:4222");
    EXPECT_EQ(m_settings.user, "u");
    EXPECT_EQ(m_settings.password, "p;w#d");
    EXPECT_TRUE(m_settings.bTls);
    Write("ca.pem", "x");
    Write("c.pem", "x");
    Write("k.pem", "x");
    EXPECT_EQ(Refused("[nats]\nca = ca.pem\ncertificate = c.pem\nkey = k.pem\ntoken = t\n"), "");
    EXPECT_EQ(m_settings.server, "nats://127.0.0.1:4222");
    EXPECT_EQ(m_settings.ca, m_folder / "ca.pem");  // relative to the settings file
    EXPECT_EQ(m_settings.certificate, m_folder / "c.pem");
    EXPECT_EQ(m_settings.key, m_folder / "k.pem");
    EXPECT_EQ(m_settings.token, "t");
    EXPECT_FALSE(m_settings.bTls);
}

TEST_F(RelaySettings, AreRefusedWithFileKeyAndReason) {
    EXPECT_EQ(Refused(""), "relay.ini: there is no section [nats]");
    EXPECT_EQ(Refused("[nats]\n"), "relay.ini: there is no section [nats]");
    EXPECT_EQ(Refused("[nats\nuser\n"), "relay.ini: not an INI file");
    EXPECT_EQ(Refused("[nats]\npasword = x\n"),
              "relay.ini: [nats] pasword: there is no such key; the keys are key, certificate, ca, "
              "credentials, nkey_seed, nkey, token, password, user, server, tls");
    EXPECT_EQ(Refused("[nats]\nuser =\npassword = x\n"),
              "relay.ini: [nats] user: the value is missing");
    EXPECT_EQ(Refused("[nats]\nuser = u\n"), "relay.ini: [nats] user needs password as well");
    EXPECT_EQ(Refused("[nats]\npassword = u\n"), "relay.ini: [nats] password needs user as well");
    EXPECT_EQ(Refused("[nats]\nnkey = UX\n"), "relay.ini: [nats] nkey needs nkey_seed as well");
    Write("c.pem", "x");
    EXPECT_EQ(Refused("[nats]\ncertificate = c.pem\n"),
              "relay.ini: [nats] certificate needs key as well");
    EXPECT_EQ(Refused("[nats]\nca = nowhere.pem\n"),
              "relay.ini: [nats] ca: nowhere.pem: No such file or directory");
    EXPECT_EQ(Refused("[nats]\ntls = 1\n"), "relay.ini: [nats] tls = 1: yes or no is needed");
    EXPECT_EQ(Refused("[nats]\nserver = nats://u:secret@a:4222\n"),
              "relay.ini: [nats] server: a user, a password or a token does not belong into an "
              "address, which is told in messages: use the keys user, password and token of the "
              "settings file");
    EXPECT_EQ(
        Refused("[nats]\nserver = a b\n"),
        "relay.ini: [nats] server: \"a b\" is no address: nats://HOST:PORT is needed, several "
        "of a cluster with commas between");
    std::string error;
    for (const std::string server : {"", ",", "nats://a:1,", "nats://a:1,,nats://b:2", "a,b c"}) {
        EXPECT_FALSE(TakeServer(server, m_settings, error)) << server;
        EXPECT_EQ(error, "\"" + server +
                             "\" is no address: nats://HOST:PORT is needed, several of a cluster "
                             "with commas between");
    }
    EXPECT_FALSE(ReadSettings(m_folder / "none.ini", m_settings, error));
    EXPECT_EQ(error, (m_folder / "none.ini") + ": No such file or directory");
    error.clear();
    EXPECT_FALSE(ReadSettings(m_folder.path(), m_settings, error));
    EXPECT_EQ(error, m_folder.path() + ": not an INI file");
}

TEST_F(RelaySettings, TheLibrarysFileSaysWhichBoardAndChannel) {
    std::string error;
    const auto device = DeviceOf(Write("a.ini", "[config]\ndevice = xilinx4:15\n"), error);
    ASSERT_TRUE(device) << error;
    EXPECT_EQ(device->bus, 4);
    EXPECT_EQ(device->channel, 15);
    for (const char* text : {"[config]\ndevice = xilinx0:16\n", "[config]\ndevice = xilinx0\n",
                             "[config]\ndevice = enyx0:1\n", "[config]\ndevice = xilinx:1\n",
                             "[config]\ndevice = xilinx0:x\n", "[config]\n", ""}) {
        error.clear();
        EXPECT_FALSE(DeviceOf(Write("b.ini", text), error)) << text;
        EXPECT_NE(error.find("b.ini: [config] device = "), std::string::npos) << error;
        EXPECT_NE(error.find("a board and a channel are needed, like xilinx0:3"),
                  std::string::npos);
    }
    error.clear();
    EXPECT_FALSE(DeviceOf(m_folder / "none.ini", error));
    EXPECT_EQ(error, (m_folder / "none.ini") + ": No such file or directory");
}

TEST_F(RelaySettings, TheCacheFileIsReadWhenItHasGrownAndNeverYesterdays) {
    CInstrumentFile file(m_folder / "bin");
    EXPECT_FALSE(file.Look());  // not there yet
    Write("bin", "3,SR209\n12,SP");
    EXPECT_TRUE(file.Look());
    EXPECT_EQ(file.List(), "3,SR209\n");
    EXPECT_FALSE(file.Look());
    Write("bin", "3,SR209\n12,SPD-SR209&SR301\n");
    EXPECT_TRUE(file.Look());
    EXPECT_EQ(file.List(), "3,SR209\n12,SPD-SR209&SR301\n");
    Write("bin", "4,SR301\n");
    const timespec yesterday[2] = {{time(nullptr) - 86400, 0}, {time(nullptr) - 86400, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (m_folder / "bin").c_str(), yesterday, 0), 0);
    EXPECT_FALSE(file.Look());
    EXPECT_FALSE(CInstrumentFile(m_folder.path()).Look());  // no file
    EXPECT_FALSE(CInstrumentFile("").Look());
}

}  // namespace
}  // namespace ZceRelay
