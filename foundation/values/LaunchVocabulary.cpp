#include <tksinterface/TKSLaunchVocabulary.h>

// Names and fixed values of the launch arguments, in export order.
constinit const std::string_view TKSLaunchArgNameLaunchMethod = "LaunchMethod";
constinit const std::string_view TKSLaunchArgValueLaunchMethodTKSInterface = "SDK";
constinit const std::string_view TKSLaunchArgNameLaunchURL = "LaunchURL";
constinit const std::string_view TKSLaunchArgNameTKSToken = "TKSToken";
constinit const std::string_view TKSLaunchArgNameGPCLocalSetting = "GPCLocalSetting";
constinit const std::string_view TKSLaunchArgNameAppInstallPath = "AppInstallPath";
constinit const std::string_view TKSLaunchArgNameLocalBuildVersion = "LocalBuildVersion";
constinit const std::string_view TKSLaunchArgNameLaunchedBy = "LaunchedBy";
constinit const std::string_view TKSLaunchArgNameLaunchInfo = "LaunchInfo";
constinit const std::string_view TKSLaunchArgNameJoinHistory = "JoinHistory";
constinit const std::string_view TKSLaunchArgNameRelaunchTimes = "RelaunchTimes";
constinit const std::string_view TKSLaunchArgNameUpdateLater = "UplateLater";
constinit const std::string_view TKSLaunchArgValueUpdateLaterYes = "1";
constinit const std::string_view TKSLaunchArgNameCommunicate = "Communicate";
constinit const std::string_view TKSLaunchArgValueCommunicatePipe = "Pipe";
constinit const std::string_view TKSLaunchArgValueCommunicateFile = "File";
constinit const std::string_view TKSLaunchArgNameTempIPCFilePath = "TempIPCFilePath";
constinit const std::string_view TKSLaunchArgNameNeedLaunchTKS = "NeedLaunchTKS";
constinit const std::string_view TKSLaunchArgNameDaemon = "daemon";
constinit const std::string_view TKSLaunchArgValueDaemonTrue = "1";
constinit const std::string_view TKSLaunchArgNameTKSLogPath = "LogFilePath";
constinit const std::string_view TKSLaunchArgNameRegType = "RegType";
constinit const std::string_view TKSLaunchArgNameUnivesalLinks = "SetupUniversalLinks";
constinit const std::string_view TKSLaunchArgNameUnivlinksSetupURL = "UniversalLinksSetupURL";

// How a launch was started; hosts pass one as the value of LaunchMethod.
constinit const std::string_view TKSLaunchMethodUnknown = "Unknown";
constinit const std::string_view TKSLaunchMethodURLProtocol = "UrlProtocol";
constinit const std::string_view TKSLaunchMethodExtension = "Extension";
constinit const std::string_view TKSLaunchMethodSafariAppExt = "SafariAppExt";
constinit const std::string_view TKSLaunchMethodTKSAPI = "TKSAPI";
constinit const std::string_view TKSLaunchMethodSDK = "SDK";
constinit const std::string_view TKSLaunchMethodTKSInterface = "TKSInterface";
constinit const std::string_view TKSLaunchMethodTFS = "TFS";
constinit const std::string_view TKSLaunchMethodInstallSafariAppExt = "InstallSafariAppExt";
constinit const std::string_view TKSLaunchMethodInstallerInit = "InstallerInit";
constinit const std::string_view TKSLaunchMethodRelocation = "Relocation";
constinit const std::string_view TKSLaunchMethodHotLaunch = "HotLaunch";
constinit const std::string_view TKSLaunchMethodUpdateLater = "UpdateLater";
constinit const std::string_view TKSLaunchMethodInMeetingUpdate = "InMeetingUpdate";
constinit const std::string_view TKSLaunchMethodDaemon = "Daemon";
constinit const std::string_view TKSLaunchMethodUniversalLinks = "UniversalLinks";
constinit const std::string_view TKSLaunchMethodGrantPrivilege = "GrantPrivilege";

// Arguments of an MTA launch, for hosts; this library does not use them.
constinit const std::string_view TKSLaunchMtaArgValueLaunchSourceV2 = "1";
constinit const std::string_view TKSLaunchMtaArgValueDefaultLanguageId = "1";
constinit const std::string_view TKSLaunchMtaArg = "1";
constinit const std::string_view TKSLaunchMtaArgNameLaunchSource = "LaunchSource";
constinit const std::string_view TKSLaunchMtaArgValueLaunchSource = "MacGPC";
constinit const std::string_view TKSLaunchMtaArgNameParamPath = "ParamPath";
constinit const std::string_view TKSLaunchMtaArgQualityAlarm = "QualityAlarm";
constinit const std::string_view TKSLaunchMtaArgCorrelationID = "correlationId";
constinit const std::string_view TKSLaunchMtaArgIsVIPMeeting = "isVIPMeeting";
constinit const std::string_view TKSLaunchMtaArgSiteId = "siteId";
constinit const std::string_view TKSLaunchMtaArgIsError = "isError";
constinit const std::string_view TKSLaunchMtaArgTKSToken = "TKSToken";
constinit const std::string_view TKSLaunchMtaArgIsNewMTA = "isNewMTA";
constinit const std::string_view TKSLaunchMtaArgLanguageId = "languageID";
