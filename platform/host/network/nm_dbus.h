// NetworkManager's D-Bus names and the numbers of its API that the host's network room reads.
#pragma once

#include <cstdint>

namespace host::network {

constexpr const char* kNmName = "org.freedesktop.NetworkManager";
constexpr const char* kNmPath = "/org/freedesktop/NetworkManager";
constexpr const char* kNmInterface = "org.freedesktop.NetworkManager";
constexpr const char* kActiveInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kDeviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* kWirelessInterface = "org.freedesktop.NetworkManager.Device.Wireless";
constexpr const char* kAccessPointInterface = "org.freedesktop.NetworkManager.AccessPoint";
// The object path NetworkManager uses for "none".
constexpr const char* kNoObject = "/";

// NMDeviceType.
constexpr uint32_t kDeviceTypeWifi = 2;

// NMDeviceState (the others count as disconnected).
constexpr uint32_t kDevicePrepare = 40;
constexpr uint32_t kDeviceConfig = 50;
constexpr uint32_t kDeviceNeedAuth = 60;
constexpr uint32_t kDeviceIpConfig = 70;
constexpr uint32_t kDeviceIpCheck = 80;
constexpr uint32_t kDeviceSecondaries = 90;
constexpr uint32_t kDeviceActivated = 100;
constexpr uint32_t kDeviceFailed = 120;

// NM80211ApFlags.
constexpr uint32_t kApPrivacy = 0x1;

// NM80211ApSecurityFlags, the same bits in WpaFlags and RsnFlags: pairwise ciphers and
// key management.
constexpr uint32_t kPairTkip = 0x4;
constexpr uint32_t kPairCcmp = 0x8;
constexpr uint32_t kKeyMgmtPsk = 0x100;
constexpr uint32_t kKeyMgmt8021x = 0x200;
constexpr uint32_t kKeyMgmtSae = 0x400;
constexpr uint32_t kKeyMgmtOwe = 0x800;
constexpr uint32_t kKeyMgmtOweTm = 0x1000;
constexpr uint32_t kKeyMgmtEapSuiteB192 = 0x2000;

}  // namespace host::network
