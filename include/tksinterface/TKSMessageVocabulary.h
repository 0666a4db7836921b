#pragma once

#include <cstdint>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// The vocabulary of the launcher protocol: what travels in the JSON messages between the interface and the launcher.
/// The constant's name is the interface, its value is what travels. Two values differ from their names on purpose.
/// All values are constant-initialised and NUL-terminated after the view.

// Member names of a message.

TKS_EXPORT extern const std::string_view tks_message_key_message_type;  ///< "message_type"
TKS_EXPORT extern const std::string_view tks_message_key_token;         ///< "token"
TKS_EXPORT extern const std::string_view tks_message_key_domain;        ///< "domain"
TKS_EXPORT extern const std::string_view tks_message_key_message;       ///< "message"
TKS_EXPORT extern const std::string_view tks_message_key_result;        ///< "result"
TKS_EXPORT extern const std::string_view tks_message_key_reason;        ///< "reason"
TKS_EXPORT extern const std::string_view tks_message_key_tksversion;    ///< "tksversion"
TKS_EXPORT extern const std::string_view tks_message_key_tkstoken;      ///< "tkstoken"
/// Carries "gpcversion" on purpose.
TKS_EXPORT extern const std::string_view tks_message_key_secversion;      ///< "gpcversion"
TKS_EXPORT extern const std::string_view tks_message_key_return_url;      ///< "ReturnURL"
TKS_EXPORT extern const std::string_view tks_message_key_error_code;      ///< "error_code"
TKS_EXPORT extern const std::string_view tks_message_key_error_message;   ///< "error_message"
TKS_EXPORT extern const std::string_view tks_message_key_status;          ///< "status"
TKS_EXPORT extern const std::string_view tks_message_key_isdownloadonly;  ///< "isdownloadonly"

// Values inside message bodies: always texts, also where they carry numbers or flags.

TKS_EXPORT extern const std::string_view tks_message_value_common_true;             ///< "1"
TKS_EXPORT extern const std::string_view tks_message_value_result_success;          ///< "0"
TKS_EXPORT extern const std::string_view tks_message_value_result_failed;           ///< "-1"
TKS_EXPORT extern const std::string_view tks_message_value_client_status_updating;  ///< "client_updating"
TKS_EXPORT extern const std::string_view tks_message_value_client_status_updated;   ///< "client_updated"
TKS_EXPORT extern const std::string_view tks_message_value_client_status_launched;  ///< "client_launched"

// Message types.

TKS_EXPORT extern const std::string_view tks_message_type_hello;                   ///< "hello"
TKS_EXPORT extern const std::string_view tks_message_type_hello_ack;               ///< "hello_ack"
TKS_EXPORT extern const std::string_view tks_message_type_connect;                 ///< "connect"
TKS_EXPORT extern const std::string_view tks_message_type_connect_ack;             ///< "connect_ack"
TKS_EXPORT extern const std::string_view tks_message_type_disconnect;              ///< "disconnect"
TKS_EXPORT extern const std::string_view tks_message_type_disconnect_ack;          ///< "disconnect_ack"
TKS_EXPORT extern const std::string_view tks_message_type_cancel;                  ///< "cancel"
TKS_EXPORT extern const std::string_view tks_message_type_show_ui_inadvance;       ///< "show_ui_inadvance"
TKS_EXPORT extern const std::string_view tks_message_type_launch_meeting;          ///< "launch_meeting"
TKS_EXPORT extern const std::string_view tks_message_type_launch_meeting_started;  ///< "launch_meeting_started"
TKS_EXPORT extern const std::string_view tks_message_type_launch_meeting_ack;      ///< "launch_meeting_ack"
/// The launcher updated itself; carries "host_notify" on purpose.
TKS_EXPORT extern const std::string_view tks_message_type_update_done;       ///< "host_notify"
TKS_EXPORT extern const std::string_view tks_message_type_message;           ///< "message"
TKS_EXPORT extern const std::string_view tks_message_type_error;             ///< "error"
TKS_EXPORT extern const std::string_view tks_message_type_query_status;      ///< "query_status"
TKS_EXPORT extern const std::string_view tks_message_type_query_status_ack;  ///< "query_status_ack"
TKS_EXPORT extern const std::string_view tks_message_type_client_status;     ///< "client_status"

// Return and error codes, carried in "error_code".

/// Launch succeeded.
TKS_EXPORT extern const std::string_view tks_message_return_code_launch_success;  ///< "2000"
/// Download cancelled.
TKS_EXPORT extern const std::string_view tks_message_error_code_download_cancelled;  ///< "2001"
/// Download failed.
TKS_EXPORT extern const std::string_view tks_message_error_code_download_failed;  ///< "2002"
/// Optional update failed.
TKS_EXPORT extern const std::string_view tks_message_error_code_optional_update_failed;  ///< "2003"
/// Forced update failed.
TKS_EXPORT extern const std::string_view tks_message_error_code_forced_update_failed;  ///< "2004"
/// Launch failed; also the code assumed when an error message carries none.
TKS_EXPORT extern const std::string_view tks_message_error_code_launch_meeting_failed;  ///< "2005"
/// Another meeting is already being launched.
TKS_EXPORT extern const std::string_view tks_message_error_code_another_meeting_in_process;  ///< "2006"
/// Launch timed out.
TKS_EXPORT extern const std::string_view tks_message_error_code_launch_meeting_timeout;  ///< "2007"
