#pragma once

/// The agent's request protocol: field names, kinds and texts, once. Header only, on the ground floor: the worker, the
/// client library and the tool speak it, too. Envelope fields are in
/// mq/Envelope.h. For authors of clients: docs/protocol.md.
namespace zv_loc_fw::agent_protocol {

// Participants
inline constexpr const char* kCsController = "inet-agent-cs";
inline constexpr const char* kTdpDlController = "inet-agent-tdp-dl";
inline constexpr const char* kOsAgent = "OS-Agent";

// Requests: "REQ"
inline constexpr const char* kGet = "GET";
inline constexpr const char* kPost = "POST";

// Fields of a request, beside FROM, TO, REQ and TX-ID
inline constexpr const char* kUrl = "URL";                                  ///< string
inline constexpr const char* kTimeoutSec = "TIMEOUT-SEC";                   ///< int32: seconds from arrival
inline constexpr const char* kForceNewConnection = "FORCE_NEW_CONNECTION";  ///< bool; underscores: deliberate
inline constexpr const char* kPostData = "POST-DATA";                       ///< blob, for POST
inline constexpr const char* kContentType = "CONTENT-TYPE";                 ///< string, optional
inline constexpr const char* kProtocolVersion = "PROTOCOL-VERSION";         ///< string, optional

// Fields of a reply, beside FROM, TO, TX-ID and RESP
inline constexpr const char* kCurlTimeout = "CURL-TIMEOUT";              ///< bool, failed transfers
inline constexpr const char* kCurlError = "CURL-ERROR";                  ///< string, failed transfers and error replies
inline constexpr const char* kHttpRespData = "HTTP-RESP-DATA";           ///< blob, unless empty
inline constexpr const char* kHttpRespCode = "HTTP-RESP-CODE";           ///< int32: HTTP status; 0 in error replies
inline constexpr const char* kHttpRespDataSize = "HTTP-RESP-DATA-SIZE";  ///< int32: bytes received
inline constexpr const char* kHttpRetryAfter = "HTTP-RETRY-AFTER";       ///< int32: seconds

// Texts of error replies, in kCurlError
inline constexpr const char* kErrorNotReady = "Inet agent not ready";
inline constexpr const char* kErrorQueuedJobTimedOut = "queued job timed out before execution";
inline constexpr const char* kErrorActiveJobTimedOut = "active job timed out";
/// In results, of agents that answer rejected requests: with the code of "perform failed %d".
inline constexpr const char* kErrorRejectedFormat = "request rejected %d";

// The worker's message to its own controller
inline constexpr const char* kHttpResult = "HTTP-RESULT";  ///< "REQ"
inline constexpr const char* kResult = "RESULT";           ///< card: the reply

// Device state, from the OS agent
inline constexpr const char* kSubscribe = "SUBSCRIBE";                           ///< "REQ"
inline constexpr const char* kUnsubscribe = "UNSUBSCRIBE";                       ///< "REQ"
inline constexpr const char* kDataItems = "DATA-ITEMS";                          ///< int32 array
inline constexpr int kDeviceStateItem = 2;                                       ///< the one element of kDataItems
inline constexpr const char* kOsStatusUpdate = "OS-STATUS-UPDATE";               ///< "INFO"
inline constexpr const char* kGpsState = "GPS_STATE";                            ///< card
inline constexpr const char* kIsGpsProviderEnabled = "IS_GPS_PROVIDER_ENABLED";  ///< bool in kGpsState
inline constexpr const char* kInEmergencyCall = "IN_EMERGENCY_CALL";             ///< card
inline constexpr const char* kIsEmergency = "IS_EMERGENCY";                      ///< bool in kInEmergencyCall

}  // namespace zv_loc_fw::agent_protocol
