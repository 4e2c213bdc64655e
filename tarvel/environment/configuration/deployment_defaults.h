#pragma once

#include <initializer_list>

namespace zo_tarvel {

// The servers that the library uses until the client or a server names others. All defaults of a
// deployment are in this file.
//
// These are placeholders: names under .invalid and addresses of the ranges for documentation, which
// belong to nobody. A deployment copies this file, puts its own values into the copy and names it
// at the configure step: -DTARVEL_DEPLOYMENT_DEFAULTS=/path/to/my_deployment.h. A value that can't
// work is an error of the build (deployment.h).

// URL of the LBS server.
inline constexpr char kDefaultLBSUrl[] = "https://lbs.tarvel.invalid/lbs/conf.jsp";
// Address of the long-lived link, "host:port".
inline constexpr char kDefaultLink[] = "link.tarvel.invalid:8080";

// The HTTPDNS service: its name, and its addresses, which are used while the local DNS is broken.
// One IPv4 address at least; IPv6 addresses in brackets, or none.
inline constexpr char kDefaultHttpDNSHost[] = "httpdns.tarvel.invalid";
inline constexpr std::initializer_list<const char*> kDefaultHttpDNSIPv4 = {
    "192.0.2.53", "198.51.100.53", "203.0.113.53", "203.0.113.54"};
inline constexpr std::initializer_list<const char*> kDefaultHttpDNSIPv6 = {"[2001:db8::53]",
                                                                           "[2001:db8:1::53]"};

// URL of the server for statistics of failures and of messages, and the path for those of messages.
inline constexpr char kDefaultStatisticsHost[] = "https://statistics.tarvel.invalid";
inline constexpr char kDefaultMessageStatisticsPath[] = "/statics/report/im/sdk/msgreceived";

// URLs of the object storage, for a client that has never reached the LBS server.
inline constexpr std::initializer_list<const char*> kDefaultObjectStorageServers = {
    "http://192.0.2.80", "http://198.51.100.80"};
inline constexpr char kDefaultObjectStorageUrl[] = "http://storage.tarvel.invalid";

}  // namespace zo_tarvel
