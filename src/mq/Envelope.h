#pragma once

/// The envelope of every message and the hub's own messages: field names and texts, once. Names are case-sensitive.
/// Format and meaning for authors of clients: docs/protocol.md.
namespace zv_loc_fw::envelope {

// Field names
inline constexpr const char* kTo = "TO";          ///< string: destination; kHub addresses the hub protocol
inline constexpr const char* kFrom = "FROM";      ///< string: sender
inline constexpr const char* kReq = "REQ";        ///< string: request kind
inline constexpr const char* kResp = "RESP";      ///< string: response kind
inline constexpr const char* kInfo = "INFO";      ///< string: event kind
inline constexpr const char* kTxId = "TX-ID";     ///< int32: transaction, repeated by the response
inline constexpr const char* kClient = "CLIENT";  ///< string: in kRegisterEvent, who registered
inline constexpr const char* kAlias = "ALIAS";    ///< string: in kAddAlias, the additional name

// Participants
inline constexpr const char* kHub = "SERVER";             ///< pseudo-destination, served by the sender's own transport
inline constexpr const char* kHubSender = "LOCATION-MQ";  ///< sender of the hub's announcements

// Kinds
inline constexpr const char* kRegister = "REGISTER";
inline constexpr const char* kAddAlias = "ADD-ALIAS";
inline constexpr const char* kRegisterEvent = "REGISTER-EVENT";
inline constexpr const char* kKill = "KILL";

// Files
inline constexpr const char* kSocketDirectory = "/dev/socket/location/mq/";
inline constexpr const char* kSocketPathFormat = "/dev/socket/location/mq/%s";
inline constexpr const char* kHubSocketPath = "/dev/socket/location/mq/location-mq-s";  ///< kept, never sent to

/// A socket path with its terminating zero; a longer one is cut.
inline constexpr int kSocketPathSize = 100;

/// No transaction given.
inline constexpr int kNoTxId = -1;

}  // namespace zv_loc_fw::envelope
