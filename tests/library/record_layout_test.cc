// Clients and library are built apart, so the records between them must never move. The public
// header checks those fields that a client's options could move; here are the others.
#include <gtest/gtest.h>
#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace zo_tarvel {
namespace {

template <class... R>
constexpr bool kFlat = ((std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>)&&...);
static_assert(kFlat<_ZOTarvelEnvironmentSettings, _ZOTarvelLBSSettings, _ZOTarvelMsgStatInfo,
                    RequestErrorRecord>);

#define EXPECT_FIELD(record, field, offset, size)       \
  EXPECT_EQ(offsetof(record, field), offset) << #field; \
  EXPECT_EQ(sizeof(record::field), size) << #field

TEST(RecordLayoutTest, OfTheEnvironmentSettings) {
  using R = _ZOTarvelEnvironmentSettings;
  EXPECT_FIELD(R, business_token, 37u, 128u);
  EXPECT_FIELD(R, business_version, 165u, 128u);
  EXPECT_FIELD(R, appdata_path, 308u, 1024u);
  EXPECT_FIELD(R, log_path, 1332u, 1024u);
}

TEST(RecordLayoutTest, OfTheLBSSettings) {
  using R = _ZOTarvelLBSSettings;
  EXPECT_FIELD(R, lbs_backup_addrs, 513u, 2560u);
  EXPECT_FIELD(R, default_link, 3073u, 128u);
  EXPECT_FIELD(R, default_link_ipv6, 3201u, 128u);
  EXPECT_FIELD(R, link_list, 3329u, 640u);
  EXPECT_FIELD(R, reserved, 3969u, 640u);
}

TEST(RecordLayoutTest, OfTheMessageStatistics) {
  using R = _ZOTarvelMsgStatInfo;
  EXPECT_FIELD(R, enable, 0u, 1u);
  EXPECT_FIELD(R, host, 1u, 512u);
  EXPECT_FIELD(R, api, 513u, 512u);
  EXPECT_FIELD(R, desc, 1025u, 128u);
}

TEST(RecordLayoutTest, OfTheFamilies) {
  static_assert(std::is_same_v<std::underlying_type_t<EMAddressFamily>, std::int32_t>);
  static_assert(std::is_same_v<std::underlying_type_t<zo_net::AddressFamily>, std::int32_t>);
  EXPECT_EQ(kEMAddressFamilyAny, 0);
  EXPECT_EQ(kEMAddressFamilyIPv4, 1);
  EXPECT_EQ(kEMAddressFamilyIPv6, 2);
  EXPECT_EQ(zo_net::kAddressFamilyAny, 0);
  EXPECT_EQ(zo_net::kAddressFamilyIPv4, 1);
  EXPECT_EQ(zo_net::kAddressFamilyIPv6, 2);
}

// The slot of each operation in the interface's table, as the client's compiler sees it.
template <class Operation>
std::size_t SlotOf(Operation operation) {
  std::ptrdiff_t representation[2];
  static_assert(sizeof operation == sizeof representation);
  std::memcpy(representation, &operation, sizeof operation);
  return static_cast<std::size_t>(representation[0] - 1) / sizeof(void*);
}

#define EXPECT_SLOT(operation, slot) EXPECT_EQ(SlotOf(&operation), slot) << #operation

TEST(InterfaceSlotTest, OfTheObject) {
  EXPECT_SLOT(IZOTarvelObject::NotifyNetworkChanged, 0u);
  EXPECT_SLOT(IZOTarvelObject::GetLBSService, 1u);
  EXPECT_SLOT(IZOTarvelObject::ReleaseLBSService, 2u);
  EXPECT_SLOT(IZOTarvelObject::SetBusinessToken, 3u);
}

TEST(InterfaceSlotTest, OfTheLBSService) {
  EXPECT_SLOT(IZOTarvelLBSService::Init, 0u);
  EXPECT_SLOT(IZOTarvelLBSService::Update, 1u);
  EXPECT_SLOT(IZOTarvelLBSService::SetLBSCallback, 2u);
  EXPECT_SLOT(IZOTarvelLBSService::SetAccIDGetter, 3u);
  EXPECT_SLOT(IZOTarvelLBSService::SetRequestErrorCollector, 4u);
  EXPECT_SLOT(IZOTarvelLBSService::GetLBSResponse, 5u);
  EXPECT_SLOT(IZOTarvelLBSService::GetLinkAddress, 6u);
  EXPECT_SLOT(IZOTarvelLBSService::GetZEBDL, 7u);
  EXPECT_SLOT(IZOTarvelLBSService::GetZEBDLList, 8u);
  EXPECT_SLOT(IZOTarvelLBSService::GetZEBList, 9u);
  EXPECT_SLOT(IZOTarvelLBSService::GetName, 10u);
  EXPECT_SLOT(IZOTarvelLBSService::GetDesc, 11u);
  EXPECT_SLOT(IZOTarvelLBSService::GetLinkCount, 12u);
  EXPECT_SLOT(IZOTarvelLBSService::GetCurrentLinkAddress, 13u);
  EXPECT_SLOT(IZOTarvelLBSService::OnCurrentLinkConnectSucceed, 14u);
  EXPECT_SLOT(IZOTarvelLBSService::GetMsgStatInfo, 15u);
}

}  // namespace
}  // namespace zo_tarvel
