// The functions of tarvel::Client. Included by client.h only.
#ifndef TARVEL_DETAIL_CLIENT_IMPL_H_
#define TARVEL_DETAIL_CLIENT_IMPL_H_

#include <tarvel/detail/session.h>

namespace tarvel {
namespace detail {

// A host name or IP address without the brackets that the library puts around IPv6.
inline std::string WithoutBrackets(std::string host) {
  if (host.size() < 2 || host.front() != '[' || host.back() != ']') return host;
  return host.substr(1, host.size() - 2);
}

using AddressReader = bool (zo_tarvel::IZOTarvelLBSService::*)(char*, std::int32_t*,
                                                               zo_tarvel::EMAddressFamily*);

inline std::optional<LinkAddress> ReadAddress(zo_tarvel::IZOTarvelLBSService& service,
                                              AddressReader read, Family wanted) {
  char host[zo_tarvel::kLinkAddressBufferSize] = {};
  std::int32_t port = 0;
  auto family = static_cast<zo_tarvel::EMAddressFamily>(wanted);
  if (!(service.*read)(host, &port, &family) || *host == '\0') return std::nullopt;
  return LinkAddress{WithoutBrackets(host), static_cast<std::uint16_t>(port),
                     static_cast<Family>(family)};
}

}  // namespace detail

inline std::optional<Client> Client::Start(Settings settings, std::string& error) {
  auto session = std::make_shared<detail::Session>(std::move(settings));
  error = session->Start();
  if (!error.empty()) return std::nullopt;
  return Client(std::move(session));
}

inline Client& Client::operator=(Client&& other) noexcept {
  if (this == &other) return *this;
  Stop();
  session_ = std::move(other.session_);
  return *this;
}

inline void Client::Stop() {
  const auto session = session_;  // Stays set: callbacks that run meanwhile may use the client.
  if (session == nullptr) return;
  session->Stop();
  session_ = nullptr;
}

inline std::optional<LinkAddress> Client::NextLinkAddress(Family wanted) {
  return detail::ReadAddress(session_->service(), &zo_tarvel::IZOTarvelLBSService::GetLinkAddress,
                             wanted);
}

inline std::optional<LinkAddress> Client::CurrentLinkAddress() const {
  return detail::ReadAddress(session_->service(),
                             &zo_tarvel::IZOTarvelLBSService::GetCurrentLinkAddress, Family::kAny);
}

inline std::int32_t Client::LinkCount() const { return session_->service().GetLinkCount(); }

inline void Client::ReportConnected(const LinkAddress& address) {
  session_->service().OnCurrentLinkConnectSucceed(address.UrlHost().c_str(), address.port);
}

inline bool Client::WaitForAnswer(std::chrono::milliseconds limit) const {
  return session_->WaitForAnswer(limit);
}

inline void Client::Update(bool force, Family family) {
  session_->ExpectUpdate();
  session_->service().Update(static_cast<zo_tarvel::EMAddressFamily>(family), force);
}

inline bool Client::SetToken(const std::string& token) {
  constexpr std::size_t kLongest = sizeof zo_tarvel::_ZOTarvelEnvironmentSettings::business_token;
  if (token.empty() || token.size() > kLongest ||
      std::any_of(token.begin(), token.end(), detail::IsControl)) {
    return false;
  }
  if (session_->TakeToken(token)) session_->ExpectUpdate();
  session_->object().SetBusinessToken(token.c_str());
  return true;
}

inline void Client::NotifyNetworkChanged(Family reachable) {
  session_->ExpectUpdate();
  session_->object().NotifyNetworkChanged(static_cast<zo_net::AddressFamily>(reachable));
}

inline std::string Client::Answer() const { return session_->Answer(); }

inline std::string Client::AnswerName() const {
  return session_->Text([](auto& service, char* out) { service.GetName(out); });
}

inline std::string Client::AnswerDescription() const {
  return session_->Text([](auto& service, char* out) { service.GetDesc(out); });
}

inline std::string Client::DownloadUrl() const {
  return session_->Text([](auto& service, char* out) { service.GetZEBDL(out); });
}

inline std::string Client::DownloadUrls() const {
  return session_->Text([](auto& service, char* out) { service.GetZEBDLList(out); });
}

inline std::string Client::StorageServers() const {
  return session_->Text([](auto& service, char* out) { service.GetZEBList(out); });
}

inline MessageStatistics Client::Statistics() const {
  zo_tarvel::_ZOTarvelMsgStatInfo info;
  session_->service().GetMsgStatInfo(&info);
  const auto text = [](const char* array, std::size_t size) {
    return std::string(array, strnlen(array, size));
  };
  return {info.enable, text(info.host, sizeof info.host), text(info.api, sizeof info.api),
          text(info.desc, sizeof info.desc)};
}

}  // namespace tarvel

#endif  // TARVEL_DETAIL_CLIENT_IMPL_H_
