// Checks that client and library, which are compiled apart, lay the records of tarvel.h out alike.
// Offsets and sizes are in bytes, for 64- and 32-bit targets. Included by tarvel.h only.
#ifndef TARVEL_RECORD_LAYOUT_H_
#define TARVEL_RECORD_LAYOUT_H_

namespace zo_tarvel {

#define TARVEL_CHECK_LAYOUT(condition, what)                                                \
  static_assert(condition, "tarvel: " what                                                  \
                           " has another layout than in the library. Remove -fpack-struct " \
                           "and whatever else packs or aligns records, such as #pragma pack.")
#define TARVEL_CHECK_FIELD(record, field, offset, size)                                 \
  TARVEL_CHECK_LAYOUT(                                                                  \
      offsetof(record, field) == (offset) && sizeof(decltype(record::field)) == (size), \
      #record "::" #field)
#define TARVEL_CHECK_SIZE(record, size) TARVEL_CHECK_LAYOUT(sizeof(record) == (size), #record)
#if defined(__i386__)  // Options and the age of the compiler change what alignof says here.
#define TARVEL_INT64_ALIGNMENT 4
#else
#define TARVEL_INT64_ALIGNMENT alignof(std::int64_t)
#endif
#define TARVEL_INT64_ALIGNED(offset) \
  (((offset) + TARVEL_INT64_ALIGNMENT - 1) / TARVEL_INT64_ALIGNMENT * TARVEL_INT64_ALIGNMENT)

TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, enable_httpdns, 0, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, only_https_supported, 4, 1);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_type, 5, 32);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_token, 37, 128);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_version, 165, 128);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, sv, 296, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, pv, 300, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, client_type, 304, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, appdata_path, 308, 1024);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, log_path, 1332, 1024);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, custom_log, 2352 + sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, try_http_request_on_netunav,
                   2352 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, single_request_timeout, 2356 + 2 * sizeof(void*),
                   4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, single_request_prefail_timeout,
                   2360 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, http_request_ip_preferred,
                   2364 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, enable_exception_data_reporting,
                   2368 + 2 * sizeof(void*), 4);
TARVEL_CHECK_SIZE(_ZOTarvelEnvironmentSettings, 2368 + 3 * sizeof(void*));

TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, using_private, 0, 1);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, lbs_main_addr, 1, 512);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, lbs_backup_addrs, 513, 2560);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, default_link, 3073, 128);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, default_link_ipv6, 3201, 128);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, link_list, 3329, 640);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, reserved, 3969, 640);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, addr_family, 4612, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, sreq_timeout_ms, 4616, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, sreq_pred_fail_time_ms, 4620, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, def_lbs_host, 4624, 512);
TARVEL_CHECK_SIZE(_ZOTarvelLBSSettings, 5136);

TARVEL_CHECK_FIELD(RequestErrorRecord, code, 0, 4);
TARVEL_CHECK_FIELD(RequestErrorRecord, url, sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(RequestErrorRecord, headers, 2 * sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(RequestErrorRecord, body, 3 * sizeof(void*), sizeof(void*));
TARVEL_CHECK_SIZE(RequestErrorRecord, 4 * sizeof(void*));

TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, enable, 0, 1);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, host, 1, 512);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, api, 513, 512);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, desc, 1025, 128);
TARVEL_CHECK_SIZE(_ZOTarvelMsgStatInfo, 1153);

TARVEL_CHECK_FIELD(TarvelExceptionExtension, operation_type, 0, 4);
TARVEL_CHECK_FIELD(TarvelExceptionExtension, target, sizeof(void*), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionExtension, code, sizeof(void*) + sizeof(std::string), 4);
TARVEL_CHECK_FIELD(TarvelExceptionExtension, description, 2 * sizeof(void*) + sizeof(std::string),
                   sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionExtension, context, 2 * sizeof(void*) + 2 * sizeof(std::string),
                   sizeof(std::string));
TARVEL_CHECK_SIZE(TarvelExceptionExtension, 2 * sizeof(void*) + 3 * sizeof(std::string));

TARVEL_CHECK_FIELD(TarvelExceptionData, user_info, 0, sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, reserved_info, sizeof(std::string), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, process_id, 2 * sizeof(std::string), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, action, 3 * sizeof(std::string), 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, duration, TARVEL_INT64_ALIGNED(3 * sizeof(std::string) + 4),
                   8);
TARVEL_CHECK_FIELD(TarvelExceptionData, start_time, offsetof(TarvelExceptionData, duration) + 8, 8);
TARVEL_CHECK_FIELD(TarvelExceptionData, state, offsetof(TarvelExceptionData, duration) + 16, 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, exception_service,
                   offsetof(TarvelExceptionData, duration) + 20, 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, extension, offsetof(TarvelExceptionData, duration) + 24,
                   sizeof(std::vector<TarvelExceptionExtension>));
TARVEL_CHECK_SIZE(TarvelExceptionData,
                  TARVEL_INT64_ALIGNED(offsetof(TarvelExceptionData, duration) + 24 +
                                       sizeof(std::vector<TarvelExceptionExtension>)));

#undef TARVEL_INT64_ALIGNED
#undef TARVEL_INT64_ALIGNMENT
#undef TARVEL_CHECK_SIZE
#undef TARVEL_CHECK_FIELD
#undef TARVEL_CHECK_LAYOUT

}  // namespace zo_tarvel

#endif  // TARVEL_RECORD_LAYOUT_H_
