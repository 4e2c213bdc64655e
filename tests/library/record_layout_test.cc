// Clients and library are built apart, so nothing between them may move. The public header checks
// the fields of its records by itself.
#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace zo_tarvel {
namespace {

static_assert(sizeof(EMAddressFamily) == 4 && sizeof(zo_net::AddressFamily) == 4);
static_assert(kEMAddressFamilyIPv4 == 1 && zo_net::kAddressFamilyIPv4 == 1);
static_assert(kEMAddressFamilyIPv6 == 2 && zo_net::kAddressFamilyIPv6 == 2);

// The slot of each operation in the interface's table, as the client's compiler sees it. The first
// half of a pointer to a virtual function is the slot's offset, plus 1 on x86.
template <class Operation>
std::size_t SlotOf(Operation operation) {
  std::ptrdiff_t representation[2];
  static_assert(sizeof operation == sizeof representation);
  std::memcpy(representation, &operation, sizeof operation);
  return static_cast<std::size_t>(representation[0]) / sizeof(void*);
}

template <class... Operations>
std::vector<std::size_t> SlotsOf(Operations... operations) {
  return {SlotOf(operations)...};
}

TEST(InterfaceSlotTest, OfObjectAndServiceAreInOrder) {
  using Object = IZOTarvelObject;
  EXPECT_THAT(SlotsOf(&Object::NotifyNetworkChanged, &Object::GetLBSService,
                      &Object::ReleaseLBSService, &Object::SetBusinessToken),
              testing::ElementsAre(0, 1, 2, 3));
  using I = IZOTarvelLBSService;
  EXPECT_THAT(
      SlotsOf(&I::Init, &I::Update, &I::SetLBSCallback, &I::SetAccIDGetter,
              &I::SetRequestErrorCollector, &I::GetLBSResponse, &I::GetLinkAddress, &I::GetZEBDL,
              &I::GetZEBDLList, &I::GetZEBList, &I::GetName, &I::GetDesc, &I::GetLinkCount,
              &I::GetCurrentLinkAddress, &I::OnCurrentLinkConnectSucceed, &I::GetMsgStatInfo),
      testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

}  // namespace
}  // namespace zo_tarvel
