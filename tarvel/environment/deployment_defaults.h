#pragma once

namespace zo_tarvel {

// Where the library turns to when nobody has told it. Every default of a deployment stands in this
// file. The names lie under .invalid and the addresses in the ranges for documentation, so that a
// build which was not set up for a deployment calls nobody: an integrator puts the deployment's own
// values here.

// The LBS server.
inline constexpr char kDefaultLBSUrl[] = "https://lbs.tarvel.invalid/lbs/conf.jsp";
// The long-lived link, "host:port".
inline constexpr char kDefaultLink[] = "link.tarvel.invalid:8080";

// The HTTPDNS service: its name, and addresses for the time when the local DNS is broken.
inline constexpr char kDefaultHttpDNSHost[] = "httpdns.tarvel.invalid";
inline constexpr const char* kDefaultHttpDNSIPv4[] = {"192.0.2.53", "198.51.100.53", "203.0.113.53",
                                                      "203.0.113.54"};
inline constexpr const char* kDefaultHttpDNSIPv6[] = {"[2001:db8::53]", "[2001:db8:1::53]"};

// Where statistics of failures and of messages go.
inline constexpr char kDefaultStatisticsHost[] = "https://statistics.tarvel.invalid";
inline constexpr char kDefaultMessageStatisticsPath[] = "/statics/report/im/sdk/msgreceived";

// The object storage, for a client that has never heard the LBS server.
inline constexpr const char* kDefaultObjectStorageServers[] = {"http://192.0.2.80",
                                                               "http://198.51.100.80"};
inline constexpr char kDefaultObjectStorageUrl[] = "http://storage.tarvel.invalid";

}  // namespace zo_tarvel
