// Clients and library are built apart, so the records between them must never move.
#include <gtest/gtest.h>
#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace zo_tarvel {
namespace {

struct Field {
  std::string name;
  std::size_t offset, size;
};

#define FIELD(record, field) \
  { #field, offsetof(record, field), sizeof(record::field) }

// Each field is where the table says, and the record ends where its last field's padding ends.
void ExpectLayout(const std::vector<Field>& found, const std::vector<Field>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].name, expected[i].name);
    EXPECT_EQ(found[i].offset, expected[i].offset) << found[i].name;
    EXPECT_EQ(found[i].size, expected[i].size) << found[i].name;
  }
}

TEST(RecordLayoutTest, OfTheEnvironmentSettings) {
  using R = _ZOTarvelEnvironmentSettings;
  static_assert(std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>);
  ExpectLayout({FIELD(R, enable_httpdns), FIELD(R, only_https_supported), FIELD(R, business_type),
                FIELD(R, business_token), FIELD(R, business_version), FIELD(R, sv), FIELD(R, pv),
                FIELD(R, client_type), FIELD(R, appdata_path), FIELD(R, log_path),
                FIELD(R, custom_log), FIELD(R, try_http_request_on_netunav),
                FIELD(R, single_request_timeout), FIELD(R, single_request_prefail_timeout),
                FIELD(R, http_request_ip_preferred), FIELD(R, enable_exception_data_reporting)},
               {{"enable_httpdns", 0, 4},
                {"only_https_supported", 4, 1},
                {"business_type", 5, 32},
                {"business_token", 37, 128},
                {"business_version", 165, 128},
                {"sv", 296, 4},
                {"pv", 300, 4},
                {"client_type", 304, 4},
                {"appdata_path", 308, 1024},
                {"log_path", 1332, 1024},
                {"custom_log", 2360, 8},
                {"try_http_request_on_netunav", 2368, 4},
                {"single_request_timeout", 2372, 4},
                {"single_request_prefail_timeout", 2376, 4},
                {"http_request_ip_preferred", 2380, 4},
                {"enable_exception_data_reporting", 2384, 4}});
  EXPECT_EQ(sizeof(R), 2392u);
}

TEST(RecordLayoutTest, OfTheLBSSettings) {
  using R = _ZOTarvelLBSSettings;
  static_assert(std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>);
  ExpectLayout({FIELD(R, using_private), FIELD(R, lbs_main_addr), FIELD(R, lbs_backup_addrs),
                FIELD(R, default_link), FIELD(R, default_link_ipv6), FIELD(R, link_list),
                FIELD(R, reserved), FIELD(R, addr_family), FIELD(R, sreq_timeout_ms),
                FIELD(R, sreq_pred_fail_time_ms), FIELD(R, def_lbs_host)},
               {{"using_private", 0, 1},
                {"lbs_main_addr", 1, 512},
                {"lbs_backup_addrs", 513, 2560},
                {"default_link", 3073, 128},
                {"default_link_ipv6", 3201, 128},
                {"link_list", 3329, 640},
                {"reserved", 3969, 640},
                {"addr_family", 4612, 4},
                {"sreq_timeout_ms", 4616, 4},
                {"sreq_pred_fail_time_ms", 4620, 4},
                {"def_lbs_host", 4624, 512}});
  EXPECT_EQ(sizeof(R), 5136u);
}

TEST(RecordLayoutTest, OfTheMessageStatistics) {
  using R = _ZOTarvelMsgStatInfo;
  static_assert(std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>);
  ExpectLayout({FIELD(R, enable), FIELD(R, host), FIELD(R, api), FIELD(R, desc)},
               {{"enable", 0, 1}, {"host", 1, 512}, {"api", 513, 512}, {"desc", 1025, 128}});
  EXPECT_EQ(sizeof(R), 1153u);
}

TEST(RecordLayoutTest, OfTheRequestErrorRecord) {
  using R = RequestErrorRecord;
  static_assert(std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>);
  ExpectLayout({FIELD(R, code), FIELD(R, url), FIELD(R, headers), FIELD(R, body)},
               {{"code", 0, 4}, {"url", 8, 8}, {"headers", 16, 8}, {"body", 24, 8}});
  EXPECT_EQ(sizeof(R), 32u);
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

TEST(InterfaceSlotTest, OfTheObject) {
  using I = IZOTarvelObject;
  EXPECT_EQ(SlotOf(&I::NotifyNetworkChanged), 0u);
  EXPECT_EQ(SlotOf(&I::GetLBSService), 1u);
  EXPECT_EQ(SlotOf(&I::ReleaseLBSService), 2u);
  EXPECT_EQ(SlotOf(&I::SetBusinessToken), 3u);
}

TEST(InterfaceSlotTest, OfTheLBSService) {
  using I = IZOTarvelLBSService;
  const std::vector<std::size_t> slots = {SlotOf(&I::Init),
                                          SlotOf(&I::Update),
                                          SlotOf(&I::SetLBSCallback),
                                          SlotOf(&I::SetAccIDGetter),
                                          SlotOf(&I::SetRequestErrorCollector),
                                          SlotOf(&I::GetLBSResponse),
                                          SlotOf(&I::GetLinkAddress),
                                          SlotOf(&I::GetZEBDL),
                                          SlotOf(&I::GetZEBDLList),
                                          SlotOf(&I::GetZEBList),
                                          SlotOf(&I::GetName),
                                          SlotOf(&I::GetDesc),
                                          SlotOf(&I::GetLinkCount),
                                          SlotOf(&I::GetCurrentLinkAddress),
                                          SlotOf(&I::OnCurrentLinkConnectSucceed),
                                          SlotOf(&I::GetMsgStatInfo)};
  for (std::size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(slots[i], i);
}

}  // namespace
}  // namespace zo_tarvel
