#include <tksinterface/TKSConstants.h>

#include "BuildValues.h"

// Names of folders, files and applications.
constinit const std::string_view TKSVersionKeySeparator = "_";
constinit const std::string_view TKSVersionSeparator = ".";
constinit const std::string_view TKSKovraMeetingsFolderName = "Kovra Meetings";
constinit const std::string_view TKSAppDataSubFolderName = "AppData";
constinit const std::string_view TKSAppDataCommonDataPlistName = "ClientVersions.plist";
constinit const std::string_view TKSReportsSubFolderName = "Reports";
constinit const std::string_view TKSIniCacheSubFolderName = "IniCache";
constinit const std::string_view TKSParamsSubFolderName = "Params";
constinit const std::string_view TKSDownloadsSubFolderName = "Downloads";
constinit const std::string_view TKSKovraFolderName = "Kovra Folder";
constinit const std::string_view TKSAddOnFolderName = "Add-ons";
constinit const std::string_view TKSAppName = "Tarvo Kovra Start.app";
constinit const std::string_view TKSAppBundleID = "com.tarvo.kovra.Tarvo-Kovra-Start";
constinit const std::string_view TKSPkgTFSName = "Kovra.pkg";
constinit const std::string_view TKSExeName = "Tarvo Kovra Start";
constinit const std::string_view TKSMeetingsDBFileName = "TarvoMeetings.db";
constinit const std::string_view TKSLocalSettingsPlistName = "LocalSettings.plist";
constinit const std::string_view TKSForumName = "Forum.app";
constinit const std::string_view TKSPlistFileName = "ClientVersions.plist";
constinit const std::string_view TKSFeatureDataPlistFileName = "FeatureData.plist";
constinit const std::string_view TKSIBundleIDHuddle = "Tarvo-Systems.Ember";
constinit const std::string_view TKSIBundleIDHuddleDebug = "Tarvo-Systems.Ember.Debug";
constinit const std::string_view tempIPCFileNameFromTKS2Interface = "ipcFile_TKS2Interface";
constinit const std::string_view tempIPCFileNameFromInterface2TKS = "ipcFile_Interface2TKS";

// Keys of ClientVersions.plist and FeatureData.plist.
constinit const std::string_view TKSPlistKeyRestoreFolder = "RestoreFolder";
constinit const std::string_view TKSPlistKeyRestoreTo = "RestoreTo";
constinit const std::string_view TKSPlistKeyBaseOn = "BaseOn";
constinit const std::string_view TKSPlistKeyVersions = "Versions";
constinit const std::string_view TKSPlistKeyOneVersions = "OneVersions";
constinit const std::string_view TKSPlistKeyJoinFirstBlockList = "JoinFirstBlockList";
constinit const std::string_view TKSPlistKeyJoinFirstBlockList2_1 = "JoinFirstBlack";
constinit const std::string_view TKSPlistKeyJoinFirstBlockList2_2 = "List";
constinit const std::string_view TKSPlistKeyLastLaunchTime = "LastLaunchTime";
constinit const std::string_view TKSPlistKeyClientBuildVersion = "ClientBuildVersion";
constinit const std::string_view TKSPlistKeySiteDomain = "SiteDomain";
constinit const std::string_view TKSPlistKeySupportConfero = "SupportConfero";
constinit const std::string_view TKSPlistKeyBuildArchitectures = "BuildArchitectures";
constinit const std::string_view TKSPlistKeyUpdateLaterVersions = "UpdateLaterVersions";
constinit const std::string_view TKSPlistKeyUsedProductVersions = "UsedProductVersions";
constinit const std::string_view TKSPlistKeyBrokenAppFolderLists = "BrokenAppFolderLists";
constinit const std::string_view TKSFeatureDataPlistKeyPendingWarmUpJobs = "PendingWarmUpJobs";

// Client parameter keys: the parameter dictionary handed to the launcher.
constinit const std::string_view TKSParamKey = "gpcParam";
constinit const std::string_view ClientParamsKey = "clientParam";
constinit const std::string_view TKSParamKeyEnableMultiVersion = "EnableMultiVersion";
constinit const std::string_view TKSParamKeySiteDomain = "SiteDomain";
constinit const std::string_view TKSParamKeyProductVersion = "ProductVersion";
constinit const std::string_view TKSParamKeyBuildVersion = "BuildVersion";
constinit const std::string_view TKSParamKeyDownloadOnly = "DownloadOnly";
constinit const std::string_view TKSParamKeyMaxClientNum = "MaxClientNum";
constinit const std::string_view TKSParamKeyGpcComponentName = "GpcComponentName";
constinit const std::string_view TKSParamKeySiteConfigExtValue = "ParmSiteConfigExt_Value";
constinit const std::string_view TKSParamKeyClientPid = "ClientPid";
constinit const std::string_view TKSClientThemeType = "themeType";
constinit const std::string_view TKSMinSupportedClientVersionToLaunchMTAForAlarm = "41.12.0.35";
constinit const std::string_view tks_gpcdownloadonly_expected_1 = "1";
constinit const std::string_view tks_gpcdownloadonly_expected_true = "true";
constinit const std::string_view tks_enablemultiversion_expected = "true";

// Client package parameter keys.
constinit const std::string_view TKSPackageParamKeyCommon = "common";
constinit const std::string_view TKSPackageParamKeyFM = "kovra";
constinit const std::string_view TKSPackageParamKeyAR = "arena";
constinit const std::string_view TKSPackageParamKeyCP = "campus";
constinit const std::string_view TKSPackageParamKeyJoinFirstVersions = "JoinFirstVersions";
constinit const std::string_view TKSPackageParamKeyJoinFirstBlockList = "JoinFirstBlockList";
constinit const std::string_view TKSPackageParamKeyJoinFirstBlockList2_1 = "JoinFirstBlack";
constinit const std::string_view TKSPackageParamKeyJoinFirstBlockList2_2 = "List";

// Launch task record in user defaults.
constinit const std::string_view TKSUserDefaultsKeyTask = "LaunchTask";
constinit const std::string_view TKSUserDefaultsKeyTaskStatus = "Status";
constinit const std::string_view TKSUserDefaultsKeyTaskTKSToken = "TKSToken";
constinit const std::string_view TKSUserDefaultsKeyTaskTKSPid = "TKSPid";
constinit const std::string_view TKSUserDefaultsKeyTaskCreateTime = "CreateTime";
constinit const std::string_view TKSUserDefaultsKeyTaskExpireTime = "ExpireTime";
constinit const std::string_view TKSUserDefaultsKeyTaskMessageDomain = "MessageDomain";
constinit const std::string_view TKSUserDefaultsKeyTaskMessageToken = "MessageToken";
constinit const std::string_view TKSUserDefaultsKeyTaskUserInfo = "UserInfo";
constinit const std::string_view TKSUserDefaultsKeyTaskTelemetryInfo = "TelemetryInfo";
constinit const std::string_view TKSTaskStatusExtInitTask = "ExtInitTask";
constinit const std::string_view TKSTaskStatusExtTryLaunchTKS = "ExtTryLaunchTKS";
constinit const std::string_view TKSTaskStatusTKSLaunched = "TKSLaunched";
constinit const std::string_view TKSTaskStatusExtConfirmLaunch = "ExtConfirmLaunch";
constinit const std::string_view TKSTaskStatusTKSSelfUpdated = "TKSSelfUpdated";
constinit const std::string_view TKSTaskStatusTKSLaunchProcessing = "TKSLaunchProcessing";
constinit const std::string_view TKSTaskStatusTKSLaunchSuccess = "TKSLaunchSuccess";
constinit const std::string_view TKSTaskStatusTKSLaunchFailed = "TKSLaunchFailed";

// Other user-defaults keys.
constinit const std::string_view TKSUserDefaultsKeyDaemonPID = "ConferoDaemonPID";
constinit const std::string_view TKSUserDefaultsKeyPrefetchPID = "ConferoPrefetchPid";
constinit const std::string_view TKSUserDefaultsKeySelfUpdatingPID = "SelfUpdatingPID";
constinit const std::string_view TKSUserDefaultsKeyLaunchedClientPIDs = "LaunchedClientPIDs";
constinit const std::string_view TKSUserDefaultsKeyInstallTime = "InstallTime";
constinit const std::string_view TKSUserDefaultsKeyUniversalLinks = "UniversalLinks";
constinit const std::string_view TKSUserDefaultsKeyUniversalLinksLocalToggle = "UniversalLinksLocalToggle";
constinit const std::string_view TKSUserDefaultsKeyUniversalLinksEnabledCache = "UniversalLinksEnabledCache";
constinit const std::string_view TKSUserDefaultsKeyUniversalLinksSetupTime = "UniversalLinksSetupTime";
constinit const std::string_view TKSUserDefaultsKeySiteLanguageID = "SiteLanguageID";
constinit const std::string_view TKSUserDefaultsKeyIsLabDevice = "IsLabDevice";
constinit const std::string_view TKSUserDefaultsKeyLabDeviceMeetingPath = "LabDeviceMeetingPath";
constinit const std::string_view TKSUserDefaultsKeyTelemetryHeaderDict = "telemetryHeaderDict";
constinit const std::string_view TKSUserDefaultsKeyTelemetryDomain = "telemetryDomain";
constinit const std::string_view TKSUserDefaultsKeyExtTrackingID = "extTrackingID";
constinit const std::string_view TKSUserDefaultsKeyTid = "tid";
constinit const std::string_view TKSUserDefaultsKeyCid = "cid";

// Feature toggles.
constinit const std::string_view TKSToggleKeyOptimizeForAppleSilicon = "OptimizeForAppleSilicon";
constinit const std::string_view TKSToggleKeyEnableDeltaUpdate = "EnableDeltaUpdate";
constinit const std::string_view TKSToggleKeyEnableJoinFirstUpdateLater = "EnableJoinFirstUpdateLater";
constinit const std::string_view TKSToggleKeyEnableRealTimeAlarmQualityIssue = "EnableRealTimeAlarmQualityIssue";
constinit const std::string_view TKSToggleKeyClientSPCompatibleVersionNo = "ClientSPCompatibleVersionNo";
constinit const std::string_view TKSToggleKeyEnableFollowSite = "EnableFollowSite";
constinit const std::string_view TKSToggleKeyEnableNewMTA = "EnableNewMTAForMac";
constinit const std::string_view TKSToggleKeyEnableMacClientWarmUp = "EnableMacClientWarmUp";
constinit const std::string_view TKSToggleKeyMacWarmUpPolicy = "MacWarmUpPolicy";

// Keychain credential names. Names only: the library itself does not read the keychain.
constinit const std::string_view kovraKeyChainServiceName = "Kovra Meetings";
constinit const std::string_view kovraKeyChainCredentialAccessToken = "accessToken";
constinit const std::string_view kovraKeyChainCredentialExpireAtUTC = "expireAtUTC";
constinit const std::string_view kovraKeyChainCredentialTimeToLive = "timeToLive";
constinit const std::string_view kovraKeyChainCredentialRefreshToken = "refreshToken";
constinit const std::string_view kovraKeyChainCredentialDisplayName = "displayName";
constinit const std::string_view kovraKeyChainCredentialUserName = "username";
constinit const std::string_view kovraKeyChainCredentialScope = "Scope";
constinit const std::string_view kovraKeyChainCredentialSiteId = "siteid";
constinit const std::string_view kovraKeyChainCredentialUserId = "userid";
constinit const std::string_view kovraKeyChainCredentialEmail = "email";

// Telemetry, call results and error domains.
constinit const std::string_view TKSSafariAppExtKovraGroupId = "group.com.tarvo.kovra.meetings";
constinit const std::string_view TKSSafariAppExtCommonErrorDomain = "com.tarvo.kovra.SafariAppExtension";
constinit const std::string_view TKSUtilErrorDomain = "com.tarvo.kovra.TKSUtil";
constinit const std::string_view TKSTelemetryLogDictKeyIllegal = "illegal";
constinit const std::string_view TKSTelemetryLogDictKeyLegal = "legal";
constinit const std::string_view TKSCallResultKeyFreeSpaceMBytes = "FreeSpaceMBytes";
constinit const std::string_view TKSCallResultKeyTotalSpaceMBytes = "TotalSpaceMBytes";
constinit const std::string_view TKSCallResultKeyDiskInfo = "DiskInfo";
constinit const std::string_view TKSIDefaultDomain = "TKSIDefaultDomain";
constinit const std::string_view TKSITKSDomain = "TKSITKSDomain";

// Launch parameter keys: download, update and versions.
constinit const std::string_view tks_param_key_gpcproductversion = "gpcproductversion";
constinit const std::string_view tks_param_key_armclientproduct = "armclientproduct";
constinit const std::string_view tks_param_key_gpcurlroot = "gpcurlroot";
constinit const std::string_view tks_param_key_gpcurlrootarm = "gpcurlrootarm";
constinit const std::string_view tks_param_key_backupurlroot = "backupurlroot";
constinit const std::string_view tks_param_key_backupurlrootarm = "backupurlrootarm";
constinit const std::string_view tks_param_key_chinaurlroot = "chinaurlroot";
constinit const std::string_view tks_param_key_chinaurlrootarm = "chinaurlrootarm";
constinit const std::string_view tks_param_key_cdndomain = "cdndomain";
constinit const std::string_view tks_param_key_gpccomponentname = "gpccomponentname";
constinit const std::string_view tks_param_key_gpcactiveinisection = "gpcactiveinisection";
constinit const std::string_view tks_param_key_loggingurl = "loggingurl";
constinit const std::string_view tks_param_key_gpcdownloadonly = "gpcdownloadonly";
constinit const std::string_view tks_param_key_gpccertification = "gpccertification";
constinit const std::string_view tks_param_key_certificateshash = "certificatesHash";
constinit const std::string_view tks_param_key_clientparam_value = "clientparam_value";
constinit const std::string_view tks_param_key_gpcconfname = "gpcconfname";
constinit const std::string_view tks_param_key_gpchostname = "gpchostname";
constinit const std::string_view tks_param_key_packageparams = "clientpackageparams";
constinit const std::string_view tks_param_key_gpcatbootparams = "gpcatbootparams";
constinit const std::string_view tks_param_key_clientspcompatibleversionno = "clientspcompatibleversionno";
constinit const std::string_view tks_param_key_gpcloadingmeetingfastflag = "gpcloadingmeetingfastflag";
constinit const std::string_view tks_param_key_gpcwindowtitle = "gpcwindowtitle";
constinit const std::string_view tks_param_key_urlprotocolversion = "urlprotocolversion";
constinit const std::string_view tks_param_key_tksversion = "tksversion";
constinit const std::string_view tks_param_key_armtksversion = "armtksversion";
constinit const std::string_view tks_param_key_tkshash = "tkshash";
constinit const std::string_view tks_param_key_armtkshash = "armtkshash";
constinit const std::string_view tks_param_key_tkssignature = "tkssignature";
constinit const std::string_view tks_param_key_armtkssignature = "armtkssignature";
constinit const std::string_view tks_param_key_clientbuildversion = "clientbuildversion";
constinit const std::string_view tks_param_key_localclientbuildversion = "localclientbuildversion";
constinit const std::string_view tks_param_key_originalclientbuildversion = "originalclientbuildversion";
constinit const std::string_view tks_param_key_issilentdownload = "issilentdownload";
constinit const std::string_view tks_param_key_enablemulticlientversion = "enablemulticlientversion";
constinit const std::string_view tks_param_key_joinfirstupdatelater = "enablejoinfirstupdatelater";
constinit const std::string_view tks_param_key_enablesplitpackage = "enablesplitpackage";
constinit const std::string_view tks_param_key_tkstimeoutseconds = "tkstimeoutseconds";
constinit const std::string_view tks_param_key_universallinkssetupurl = "universallinkssetupurl";
constinit const std::string_view tks_param_key_needcleanandretry = "needcleanandretry";
constinit const std::string_view tks_param_key_clientprogress = "clientprogress";
constinit const std::string_view tks_param_key_gpclocalsetting = "gpclocalsetting";
constinit const std::string_view tks_param_key_gpcsitedomain = "gpcsitedomain";
constinit const std::string_view tks_param_key_incompatibleversions = "incompatibleversions";
constinit const std::string_view tks_param_key_followsite = "followsite";
constinit const std::string_view tks_param_key_inmeetingupdate = "inmeetingupdate";
constinit const std::string_view tks_param_key_needupdatedpid = "needupdatedpid";
constinit const std::string_view tks_param_key_incompatibleversionerror = "incompatibleversionerror";
constinit const std::string_view tks_param_key_working_folder = "workingFolder";

// Launch parameter keys: meeting and behaviour.
constinit const std::string_view tks_param_key_meetingid = "meetingid";
constinit const std::string_view tks_param_key_meetingparams = "meetingparams";
constinit const std::string_view tks_param_key_jmtclicklog = "jmtclicklog";
constinit const std::string_view tks_param_key_regtype = "regtype";
constinit const std::string_view tks_param_key_meetsimpleui = "meetsimpleui";
constinit const std::string_view tks_param_key_setupapplication = "setupapplication";
constinit const std::string_view tks_param_key_kovraappparams = "kovraappparams";
constinit const std::string_view tks_param_key_onetimetoken = "onetimetoken";
constinit const std::string_view tks_param_key_correlationid = "correlationid";
constinit const std::string_view tks_param_key_trackingid = "trackingid";
constinit const std::string_view tks_param_key_meetingkey = "meetingkey";
constinit const std::string_view tks_param_key_meetingrandom = "meetingrandom";
constinit const std::string_view tks_param_key_launchmethod = "launchmethod";
constinit const std::string_view tks_param_key_featurepayloads = "featurepayloads";
constinit const std::string_view tks_param_key_ignoredelayredirect = "ignoredelayredirect";
constinit const std::string_view tks_param_key_enableuniversallinks = "enablemacosuniversallinks";
constinit const std::string_view tks_param_key_enableinappjoin = "enableinappjoin";
constinit const std::string_view tks_param_key_useunivlinksdocshow = "useuniversallinksdocshow";
constinit const std::string_view tks_param_key_originbrowsertype = "originbrowsertype";
constinit const std::string_view tks_param_key_ucfjmts = "ucfjmts";

// Launch parameter values.
constinit const std::string_view tks_param_value_common_true = "1";
constinit const std::string_view tks_param_value_common_false = "0";
constinit const std::string_view tks_param_value_common_true2 = "true";
constinit const std::string_view tks_param_value_common_false2 = "false";
constinit const std::string_view tks_param_value_gpcdownloadonly_true = "1";
constinit const std::string_view tks_param_value_gpcdownloadonly_false = "0";
constinit const std::string_view tks_param_value_gpcdownloadonly_true_2 = "TRUE";
constinit const std::string_view tks_param_value_meetsimpleui_expected = "true";
constinit const std::string_view tks_param_value_meetsimpleui_expected_2 = "1";
constinit const std::string_view tks_param_value_gpcloadingmeetingfastflag_expected = "1";
constinit const std::string_view tks_param_value_gpcloadingmeetingfastflag_expected_2 = "true";
constinit const std::string_view tks_param_value_issilentdownload_expected = "1";
constinit const std::string_view tks_param_value_issilentdownload_expected_2 = "TRUE";
constinit const std::string_view tks_param_value_tkstimeoutseconds_min_value = "30";
constinit const std::string_view tks_param_value_joinfirstupdatelater_expected = "1";
constinit const std::string_view tks_param_value_joinfirstupdatelater_expected_2 = "true";
constinit const std::string_view tks_param_value_enablemulticlientversion_expected = "1";
constinit const std::string_view tks_param_value_enablemulticlientversion_expected_2 = "true";
constinit const std::string_view tks_param_value_enablesplitpackage_expected = "true";
constinit const std::string_view tks_param_value_setupapplication_unexpected = "0";
constinit const std::string_view tks_param_value_setupapplication_expected = "1";
constinit const std::string_view tks_param_value_setupapplication_expected_2 = "true";
constinit const std::string_view tks_param_value_gpcactiveinisection_fm = "Kovra";
constinit const std::string_view tks_param_value_gpcactiveinisection_ar = "KovraAR";
constinit const std::string_view tks_param_value_gpcactiveinisection_cp = "KovraCP";
constinit const std::string_view tks_param_value_gpccomponentname_fm = "atconfui.bundle";
constinit const std::string_view tks_param_value_gpccomponentname_fm2 = "kvxmgrfm.bundle";
constinit const std::string_view tks_param_value_gpccomponentname_ar = "kvxmgrar.bundle";
constinit const std::string_view tks_param_value_gpccomponentname_cp = "kvxmgrcp.bundle";
constinit const std::string_view tks_param_value_regtype_host_hx = "101";
constinit const std::string_view tks_param_value_regtype_host_parley = "102";
constinit const std::string_view tks_param_value_regtype_host_huddle = "103";
constinit const std::string_view tks_param_value_regtype_host_firefox = "9";
constinit const std::string_view tks_param_value_regtype_host_safari = "10";
constinit const std::string_view tks_param_value_regtype_host_chrome = "12";
constinit const std::string_view tks_param_value_regtype_host_universal_links = "16";
constinit const std::string_view tks_param_value_regtype_universal_links_v1 = "1";
constinit const std::string_view tks_param_value_joinfirst_not_support = "0";
constinit const std::string_view tks_param_value_joinfirst_ep_level = "1";
constinit const std::string_view tks_param_value_joinfirst_sp_level = "2";
constinit const std::string_view tks_param_value_ignoredelayredirect_true = "1";

// Values set when the library is built.
constinit const std::string_view kovraKeyChainShareGroupName = TKS_TEAM_ID ".com.kovra.logintokenshare";
constinit const std::string_view TKSTarvoCodeSignTeamID = TKS_TEAM_ID;
constinit const std::string_view TKSCommonClientErrorDomain = TKS_MESSAGE_DOMAIN;
constinit const std::string_view commonErrorDomain = TKS_MESSAGE_DOMAIN;
constinit const std::string_view designatedLockedInsiderSiteDomain = TKS_INSIDER_SITE;
constinit const std::string_view designatedLockedDevchannelSiteDomain = TKS_DEVCHANNEL_SITE;
constinit const std::string_view designatedTelemetryUrl = "https://" TKS_TELEMETRY_HOST "/metric/v1";
constinit const std::string_view kTarvoCertificate = "Developer ID Application: Tarvo (" TKS_TEAM_ID ")";

// Numbers and version marks.
constinit const double tksinterfaceVersionNumber = 1.0;
constinit const std::int32_t tksMessageHostTypeInterface = 0;
constinit const std::int32_t tksMessageHostTypeTKS = 1;
constinit const double TKSLaunchTaskCommonTimeoutSeconds = 180.0;
constinit const std::int32_t TKSMinSupportedMainVersion = 4;
constinit const std::int32_t TKSDefaultMaxClientVersionNum = 5;
constinit const std::int64_t TKSTokenLength = 8;
constinit const std::int64_t buildVersionDiff = 2;
constinit const std::int64_t monthNumber = 12;
constinit const std::string_view tksinterfaceVersionString = "@(#)PROGRAM:tksinterface  PROJECT:TKSInterface-1\n";
constinit std::int64_t tks_max_msg_size = 10485760;
