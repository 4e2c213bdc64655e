// Clients and library are built apart, so nothing between them may move. The public header checks
// the fields of its records by itself.
#include <gtest/gtest.h>
#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

namespace zo_tarvel {
namespace {

template <class... R>
constexpr bool kFlat = ((std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>)&&...);
static_assert(kFlat<_ZOTarvelEnvironmentSettings, _ZOTarvelLBSSettings, _ZOTarvelMsgStatInfo,
                    RequestErrorRecord>);

static_assert(std::is_same_v<std::underlying_type_t<EMAddressFamily>, std::int32_t> &&
              kEMAddressFamilyAny == 0 && kEMAddressFamilyIPv4 == 1 && kEMAddressFamilyIPv6 == 2);
static_assert(std::is_same_v<std::underlying_type_t<zo_net::AddressFamily>, std::int32_t> &&
              zo_net::kAddressFamilyAny == 0 && zo_net::kAddressFamilyIPv4 == 1 &&
              zo_net::kAddressFamilyIPv6 == 2);

// The slot of each operation in the interface's table, as the client's compiler sees it.
template <class Operation>
std::size_t SlotOf(Operation operation) {
  std::ptrdiff_t representation[2];
  static_assert(sizeof operation == sizeof representation);
  std::memcpy(representation, &operation, sizeof operation);
  return static_cast<std::size_t>(representation[0] - 1) / sizeof(void*);
}

template <class... Operations>
void ExpectSlotsInOrder(Operations... operations) {
  const std::vector<std::size_t> slots{SlotOf(operations)...};
  for (std::size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(slots[i], i) << "operation " << i;
}

TEST(InterfaceSlotTest, OfObjectAndServiceAreInOrder) {
  using Object = IZOTarvelObject;
  ExpectSlotsInOrder(&Object::NotifyNetworkChanged, &Object::GetLBSService,
                     &Object::ReleaseLBSService, &Object::SetBusinessToken);
  using I = IZOTarvelLBSService;
  ExpectSlotsInOrder(&I::Init, &I::Update, &I::SetLBSCallback, &I::SetAccIDGetter,
                     &I::SetRequestErrorCollector, &I::GetLBSResponse, &I::GetLinkAddress,
                     &I::GetZEBDL, &I::GetZEBDLList, &I::GetZEBList, &I::GetName, &I::GetDesc,
                     &I::GetLinkCount, &I::GetCurrentLinkAddress, &I::OnCurrentLinkConnectSucceed,
                     &I::GetMsgStatInfo);
}

}  // namespace
}  // namespace zo_tarvel
