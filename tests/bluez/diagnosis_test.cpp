// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/linux/bluez/diagnosis.h"
#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class Sockets : public kv::HciSockets {
 public:
  kv::OwnedFd openRaw(std::uint16_t /*index*/) override { return open(raw); }
  kv::OwnedFd openManagement() override { return open(management); }

  bool raw = true;
  bool management = true;

 private:
  static kv::OwnedFd open(bool allowed) {
    errno = EAFNOSUPPORT;
    return kv::OwnedFd(allowed ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1);
  }
};

class DiagnosisTest : public BlueZTest {
 protected:
  // Each finding as "topic verdict seen|advice", one a line.
  std::string diagnose() {
    std::string text;
    bool done = false;
    const auto diagnosis = std::make_shared<kv::Diagnosis>(
        queue, options,
        [&](const std::vector<KVFinding>& findings) {
          for (const auto& [topic, verdict, seen, advice] : findings) {
            constexpr std::array kVerdicts{"ok", "hint", "unusable"};
            text += topic + ' ' + kVerdicts.at(static_cast<std::size_t>(verdict)) + ' ' + seen +
                    '|' + advice + '\n';
          }
          done = true;
        },
        kv::DiagnosisSources{sys.string(), sockets, 200ms});
    queue->post([&] { diagnosis->begin(); });
    EXPECT_TRUE(waitFor([&] { return done; }));
    return text;
  }
  void TearDown() override { std::filesystem::remove_all(sys); }

  std::filesystem::path sys =
      std::filesystem::path(testing::TempDir()) / ("kvfob-sys-" + std::to_string(getpid()));
  std::shared_ptr<Sockets> sockets = std::make_shared<Sockets>();
};

TEST_F(DiagnosisTest, EachTroubleIsNamedWithItsRemedy) {
  const auto soft = sys / "class/bluetooth/hci90/rfkill3/soft";
  const auto hard = sys / "class/bluetooth/hci90/rfkill3/hard";
  const struct {
    const char* name;
    std::function<void()> arrange;
    const char* seen;
    const char* advice;
  } cases[] = {
      {"no bus", [&] { bus.stop(); }, "bus unusable there is no message bus", "/run/dbus"},
      {"no daemon", [&] { bus.start(); }, "service unusable", "systemctl start"},
      {"no permission",
       [&] {
         startDaemon();
         EXPECT_TRUE(waitFor([&] { return bluez->ready(); }));
         bluez->on("GetManagedObjects", [](const kv::BusCall& call) {
           call.fail("org.freedesktop.DBus.Error.AccessDenied", "Rejected send message");
         });
       },
       "service ok bluetoothd is running|\npermission unusable", "group bluetooth"},
      {"silent daemon", [&] { bluez->on("GetManagedObjects", [](const kv::BusCall&) {}); },
       "does not answer", "systemctl restart"},
      {"no adapter", [&] { bluez->restore("GetManagedObjects"); },
       "service ok bluetoothd is running|\npermission ok this user may talk to bluetoothd|\n"
       "adapter unusable neither bluetoothd nor",
       "plug"},
      {"adapter of the kernel",
       [&] {
         std::filesystem::create_directories(soft.parent_path());
         std::filesystem::create_directory(sys / "class/bluetooth/hci90:64");  // a link
         std::filesystem::create_directory(sys / "class/bluetooth/other");
       },
       "although the kernel has hci90|", "systemctl restart"},
      {"off", [&] { bluez->addAdapter(kHci, "00:00:00:00:00:01", /*powered=*/false); },
       "power unusable hci90 is off|", "bluetoothctl power on"},
      {"blocked", [&] { std::ofstream(soft) << "1\n"; }, "blocked (rfkill)", "rfkill unblock"},
      {"switched off", [&] { std::ofstream(hard) << "1\n"; }, "by a switch", "flight mode"},
      {"another adapter wanted", [&] { options.adapter = "hci7"; }, "there is hci90", "choose one"},
      {"by address",
       [&] {
         options.adapter = "00:00:00:00:00:01";
         bluez->set(kHci, kAdapter, {{"Powered", true}, {"Alias", std::string("desk")}});
         bluez->set(kHci, kAdapter, "Modalias", std::string("usb:v1D6Bp0246d0542"));
       },
       "adapter ok hci90 (00:00:00:00:00:01, \"desk\")|", "bluetoothd 5.66 is running"},
      {"no raw socket", [&] { sockets->raw = false; }, "management interface", "CAP_NET_ADMIN"},
      {"no sockets", [&] { sockets->management = false; }, "rssi hint", "host's network"},
      {"another scanner", [&] { bluez->set(kHci, kAdapter, "Discovering", true); }, "scan hint",
       "close that program"},
      {"tag that a dead process has left",
       [&] {
         bluez->advertise(kTag, kFrame);
         bluez->setConnected(kTag, true);
       },
       "link hint AA:00:00:00:00:01", "bluetoothctl disconnect AA:00:00:00:00:01"},
      {"one that it has never heard",
       [&] {
         bluez->add(FakeBlueZ::devicePath(kOtherTag), kDevice,
                    {{"Address", std::string(kOtherTag)},
                     {"Connected", true},
                     {"UUIDs", std::vector<std::string>{"0000110b-0000-1000-8000-00805f9b34fb",
                                                        "7f280001-8204-f393-e0a9-e50e24dcca9e"}}});
       },
       "link hint AA:00:00:00:00:02", "bluetoothctl disconnect AA:00:00:00:00:02"},
      {"several adapters, of which the first that is on is used",
       [&] {
         options.adapter = "";
         bluez->addAdapter("/org/bluez/hci80", "00:00:00:00:00:08", /*powered=*/false);
         bluez->addAdapter("/org/bluez/hci91", "00:00:00:00:00:09");
       },
       "adapter ok hci90 (00:00:00:00:00:01, \"desk\"); there is also hci80 (00:00:00:00:00:08), "
       "hci91 (00:00:00:00:00:09)|",
       ""},
  };
  for (const auto& each : cases) {
    each.arrange();
    EXPECT_THAT(diagnose(), AllOf(HasSubstr(each.seen), HasSubstr(each.advice))) << each.name;
  }
}

TEST_F(DiagnosisTest, BusThatRejectsThisProcess) {
  const RejectingBus closed(*queue);
  options.busAddress = closed.address();
  EXPECT_THAT(diagnose(), AllOf(HasSubstr("permission unusable the message bus refuses"),
                                HasSubstr("group bluetooth")));
}

TEST_F(DiagnosisTest, NothingIsFoundWhereAllIsWell) {
  startDaemon();
  bluez->addAdapter();
  bluez->add(
      FakeBlueZ::devicePath(kOtherTag), kDevice,  // no tag: a headset
      {{"Address", std::string(kOtherTag)},
       {"Connected", true},
       {"UUIDs", std::vector<std::string>{"0000110b-0000-1000-8000-00805f9b34fb"}},
       {"ServiceData", FakeBlueZ::ServiceData{{"0000110b-0000-1000-8000-00805f9b34fb", {1}}}}});
  EXPECT_TRUE(waitFor([&] { return bluez->ready(); }));
  EXPECT_EQ(diagnose(),
            "bus ok the message bus answers|\n"
            "service ok bluetoothd of unknown version is running|\n"
            "permission ok this user may talk to bluetoothd|\n"
            "adapter ok hci90 (00:00:00:00:00:01)|\n"
            "power ok hci90 is on|\n"
            "rssi ok the signal strength of a link can be read (raw HCI socket)|\n"
            "scan ok nobody else is scanning|\n"
            "link ok no tag is held by another program|\n");
}

}  // namespace
}  // namespace kvtest
