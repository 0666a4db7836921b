#include <tksinterface/TKSMessageVocabulary.h>

// Member names of a message.
constinit const std::string_view tks_message_key_message_type = "message_type";
constinit const std::string_view tks_message_key_token = "token";
constinit const std::string_view tks_message_key_domain = "domain";
constinit const std::string_view tks_message_key_message = "message";
constinit const std::string_view tks_message_key_result = "result";
constinit const std::string_view tks_message_key_reason = "reason";
constinit const std::string_view tks_message_key_tksversion = "tksversion";
constinit const std::string_view tks_message_key_tkstoken = "tkstoken";
constinit const std::string_view tks_message_key_secversion = "gpcversion";
constinit const std::string_view tks_message_key_return_url = "ReturnURL";
constinit const std::string_view tks_message_key_error_code = "error_code";
constinit const std::string_view tks_message_key_error_message = "error_message";
constinit const std::string_view tks_message_key_status = "status";
constinit const std::string_view tks_message_key_isdownloadonly = "isdownloadonly";

// Values inside message bodies: always texts, also where they carry numbers or flags.
constinit const std::string_view tks_message_value_common_true = "1";
constinit const std::string_view tks_message_value_result_success = "0";
constinit const std::string_view tks_message_value_result_failed = "-1";
constinit const std::string_view tks_message_value_client_status_updating = "client_updating";
constinit const std::string_view tks_message_value_client_status_updated = "client_updated";
constinit const std::string_view tks_message_value_client_status_launched = "client_launched";

// Message types.
constinit const std::string_view tks_message_type_hello = "hello";
constinit const std::string_view tks_message_type_hello_ack = "hello_ack";
constinit const std::string_view tks_message_type_connect = "connect";
constinit const std::string_view tks_message_type_connect_ack = "connect_ack";
constinit const std::string_view tks_message_type_disconnect = "disconnect";
constinit const std::string_view tks_message_type_disconnect_ack = "disconnect_ack";
constinit const std::string_view tks_message_type_cancel = "cancel";
constinit const std::string_view tks_message_type_show_ui_inadvance = "show_ui_inadvance";
constinit const std::string_view tks_message_type_launch_meeting = "launch_meeting";
constinit const std::string_view tks_message_type_launch_meeting_started = "launch_meeting_started";
constinit const std::string_view tks_message_type_launch_meeting_ack = "launch_meeting_ack";
constinit const std::string_view tks_message_type_update_done = "host_notify";
constinit const std::string_view tks_message_type_message = "message";
constinit const std::string_view tks_message_type_error = "error";
constinit const std::string_view tks_message_type_query_status = "query_status";
constinit const std::string_view tks_message_type_query_status_ack = "query_status_ack";
constinit const std::string_view tks_message_type_client_status = "client_status";

// Return and error codes, carried in "error_code".
constinit const std::string_view tks_message_return_code_launch_success = "2000";
constinit const std::string_view tks_message_error_code_download_cancelled = "2001";
constinit const std::string_view tks_message_error_code_download_failed = "2002";
constinit const std::string_view tks_message_error_code_optional_update_failed = "2003";
constinit const std::string_view tks_message_error_code_forced_update_failed = "2004";
constinit const std::string_view tks_message_error_code_launch_meeting_failed = "2005";
constinit const std::string_view tks_message_error_code_another_meeting_in_process = "2006";
constinit const std::string_view tks_message_error_code_launch_meeting_timeout = "2007";
