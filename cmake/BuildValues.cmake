# Values that the maker sets when the library is built.
set(TKS_TEAM_ID "T4RV0K0VRA" CACHE STRING "The maker's ten-character Developer Team ID")
set(TKS_MESSAGE_DOMAIN "messages.tarvo.example" CACHE STRING "Default message domain (a host name)")
set(TKS_TELEMETRY_HOST "telemetry.tarvo.example" CACHE STRING "Host of the telemetry endpoint")
set(TKS_INSIDER_SITE "insider.tarvo.example" CACHE STRING "Site domain of the locked insider site")
set(TKS_DEVCHANNEL_SITE "devchannel.tarvo.example" CACHE STRING "Site domain of the locked developer-channel site")
set(TKS_TEST_MODE_HELP_URL "https://developer.tarvo.example/test-mode" CACHE STRING
    "Where the log line about test mode points developers to")
option(TKS_ALLOW_TEST_MODE "Let lab devices skip the trust checks" ON)
option(TKS_STRICT_MAKER_CHECK "Verify the maker's chain up to a pinned root" OFF)
set(TKS_PINNED_ROOT_SHA256 "" CACHE STRING "SHA-256 of the pinned root certificate, for the strict maker check")
if(TKS_STRICT_MAKER_CHECK)
  string(LENGTH "${TKS_PINNED_ROOT_SHA256}" tks_pin_length)
  if(NOT tks_pin_length EQUAL 64 OR NOT TKS_PINNED_ROOT_SHA256 MATCHES "^[0-9A-Fa-f]+$")
    message(FATAL_ERROR "TKS_STRICT_MAKER_CHECK needs TKS_PINNED_ROOT_SHA256: 64 hexadecimal digits")
  endif()
endif()

configure_file(${PROJECT_SOURCE_DIR}/cmake/BuildValues.h.in ${PROJECT_BINARY_DIR}/generated/BuildValues.h @ONLY)
