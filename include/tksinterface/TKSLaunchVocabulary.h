#pragma once

#include <cstdint>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// The launcher's command line.
///
/// The launcher takes its options as pairs of separate arguments: "-" followed by a name, then the value. The receiving
/// side reads them through the argument domain of its preferences. A name is never joined to its value with "=".
/// All values are constant-initialised and NUL-terminated after the view.

// Names and fixed values of the launch arguments, in export order.

TKS_EXPORT extern const std::string_view TKSLaunchArgNameLaunchMethod;  ///< "LaunchMethod"
/// What this library itself passes for LaunchMethod (not TKSLaunchMethodTKSInterface).
TKS_EXPORT extern const std::string_view TKSLaunchArgValueLaunchMethodTKSInterface;  ///< "SDK"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameLaunchURL;                  ///< "LaunchURL"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameTKSToken;                   ///< "TKSToken"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameGPCLocalSetting;            ///< "GPCLocalSetting"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameAppInstallPath;             ///< "AppInstallPath"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameLocalBuildVersion;          ///< "LocalBuildVersion"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameLaunchedBy;                 ///< "LaunchedBy"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameLaunchInfo;                 ///< "LaunchInfo"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameJoinHistory;                ///< "JoinHistory"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameRelaunchTimes;              ///< "RelaunchTimes"
/// The letters are exactly so.
TKS_EXPORT extern const std::string_view TKSLaunchArgNameUpdateLater;       ///< "UplateLater"
TKS_EXPORT extern const std::string_view TKSLaunchArgValueUpdateLaterYes;   ///< "1"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameCommunicate;       ///< "Communicate"
TKS_EXPORT extern const std::string_view TKSLaunchArgValueCommunicatePipe;  ///< "Pipe"
TKS_EXPORT extern const std::string_view TKSLaunchArgValueCommunicateFile;  ///< "File"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameTempIPCFilePath;   ///< "TempIPCFilePath"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameNeedLaunchTKS;     ///< "NeedLaunchTKS"
/// Lower case.
TKS_EXPORT extern const std::string_view TKSLaunchArgNameDaemon;       ///< "daemon"
TKS_EXPORT extern const std::string_view TKSLaunchArgValueDaemonTrue;  ///< "1"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameTKSLogPath;   ///< "LogFilePath"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameRegType;      ///< "RegType"
/// The constant's name is spelled so.
TKS_EXPORT extern const std::string_view TKSLaunchArgNameUnivesalLinks;      ///< "SetupUniversalLinks"
TKS_EXPORT extern const std::string_view TKSLaunchArgNameUnivlinksSetupURL;  ///< "UniversalLinksSetupURL"

// How a launch was started; hosts pass one as the value of LaunchMethod.

TKS_EXPORT extern const std::string_view TKSLaunchMethodUnknown;              ///< "Unknown"
TKS_EXPORT extern const std::string_view TKSLaunchMethodURLProtocol;          ///< "UrlProtocol"
TKS_EXPORT extern const std::string_view TKSLaunchMethodExtension;            ///< "Extension"
TKS_EXPORT extern const std::string_view TKSLaunchMethodSafariAppExt;         ///< "SafariAppExt"
TKS_EXPORT extern const std::string_view TKSLaunchMethodTKSAPI;               ///< "TKSAPI"
TKS_EXPORT extern const std::string_view TKSLaunchMethodSDK;                  ///< "SDK"
TKS_EXPORT extern const std::string_view TKSLaunchMethodTKSInterface;         ///< "TKSInterface"
TKS_EXPORT extern const std::string_view TKSLaunchMethodTFS;                  ///< "TFS"
TKS_EXPORT extern const std::string_view TKSLaunchMethodInstallSafariAppExt;  ///< "InstallSafariAppExt"
TKS_EXPORT extern const std::string_view TKSLaunchMethodInstallerInit;        ///< "InstallerInit"
TKS_EXPORT extern const std::string_view TKSLaunchMethodRelocation;           ///< "Relocation"
TKS_EXPORT extern const std::string_view TKSLaunchMethodHotLaunch;            ///< "HotLaunch"
TKS_EXPORT extern const std::string_view TKSLaunchMethodUpdateLater;          ///< "UpdateLater"
TKS_EXPORT extern const std::string_view TKSLaunchMethodInMeetingUpdate;      ///< "InMeetingUpdate"
TKS_EXPORT extern const std::string_view TKSLaunchMethodDaemon;               ///< "Daemon"
TKS_EXPORT extern const std::string_view TKSLaunchMethodUniversalLinks;       ///< "UniversalLinks"
TKS_EXPORT extern const std::string_view TKSLaunchMethodGrantPrivilege;       ///< "GrantPrivilege"

// Arguments of an MTA launch, for hosts; this library does not use them.

TKS_EXPORT extern const std::string_view TKSLaunchMtaArgValueLaunchSourceV2;     ///< "1"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgValueDefaultLanguageId;  ///< "1"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArg;                        ///< "1"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgNameLaunchSource;        ///< "LaunchSource"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgValueLaunchSource;       ///< "MacGPC"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgNameParamPath;           ///< "ParamPath"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgQualityAlarm;            ///< "QualityAlarm"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgCorrelationID;           ///< "correlationId"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgIsVIPMeeting;            ///< "isVIPMeeting"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgSiteId;                  ///< "siteId"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgIsError;                 ///< "isError"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgTKSToken;                ///< "TKSToken"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgIsNewMTA;                ///< "isNewMTA"
TKS_EXPORT extern const std::string_view TKSLaunchMtaArgLanguageId;              ///< "languageID"
