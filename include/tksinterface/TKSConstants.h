#pragma once

#include <cstdint>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// The catalogue of constants that hosts, the launcher and this library share: folder and file names, property-list
/// keys, preference keys, feature toggles, launch parameters, error domains and limits. The vocabulary of messages
/// stands in TKSMessageVocabulary.h, that of the launcher's command line in TKSLaunchVocabulary.h. All values are
/// constant-initialised and NUL-terminated after the view; they may be read from any thread at any time.

// Numbers and version marks. Those without a stated use are exported for hosts.

/// Version number of the library interface.
TKS_EXPORT extern const double tksinterfaceVersionNumber;  ///< 1.0
/// Message host role: this library in a host application.
TKS_EXPORT extern const std::int32_t tksMessageHostTypeInterface;  ///< 0
/// Message host role: the launcher.
TKS_EXPORT extern const std::int32_t tksMessageHostTypeTKS;  ///< 1
/// Common time-out of a launch task, in seconds.
TKS_EXPORT extern const double TKSLaunchTaskCommonTimeoutSeconds;  ///< 180.0
/// Lowest main (first) version number of a launcher that may be installed.
TKS_EXPORT extern const std::int32_t TKSMinSupportedMainVersion;  ///< 4
/// Default maximum number of meeting-client versions.
TKS_EXPORT extern const std::int32_t TKSDefaultMaxClientVersionNum;  ///< 5
/// Token length in characters.
TKS_EXPORT extern const std::int64_t TKSTokenLength;  ///< 8
/// Build-version difference.
TKS_EXPORT extern const std::int64_t buildVersionDiff;  ///< 2
/// Number of months.
TKS_EXPORT extern const std::int64_t monthNumber;  ///< 12
/// Version mark of the library, ended by a line feed (two blanks before PROJECT).
TKS_EXPORT extern const std::string_view tksinterfaceVersionString;
/// Largest message that the transport accepts, in bytes. The one value that a host may change: set it before the first
/// conversation, from the main thread; it is read at each use.
TKS_EXPORT extern std::int64_t tks_max_msg_size;  ///< 10485760 (10 MiB)

/// Marks the family of parameter keys; it has no operations and no state.
class TKSParamKeys {};

// Names of folders, files and applications.

TKS_EXPORT extern const std::string_view TKSVersionKeySeparator;            ///< "_"
TKS_EXPORT extern const std::string_view TKSVersionSeparator;               ///< "."
TKS_EXPORT extern const std::string_view TKSKovraMeetingsFolderName;        ///< "Kovra Meetings"
TKS_EXPORT extern const std::string_view TKSAppDataSubFolderName;           ///< "AppData"
TKS_EXPORT extern const std::string_view TKSAppDataCommonDataPlistName;     ///< "ClientVersions.plist"
TKS_EXPORT extern const std::string_view TKSReportsSubFolderName;           ///< "Reports"
TKS_EXPORT extern const std::string_view TKSIniCacheSubFolderName;          ///< "IniCache"
TKS_EXPORT extern const std::string_view TKSParamsSubFolderName;            ///< "Params"
TKS_EXPORT extern const std::string_view TKSDownloadsSubFolderName;         ///< "Downloads"
TKS_EXPORT extern const std::string_view TKSKovraFolderName;                ///< "Kovra Folder"
TKS_EXPORT extern const std::string_view TKSAddOnFolderName;                ///< "Add-ons"
TKS_EXPORT extern const std::string_view TKSAppName;                        ///< "Tarvo Kovra Start.app"
TKS_EXPORT extern const std::string_view TKSAppBundleID;                    ///< "com.tarvo.kovra.Tarvo-Kovra-Start"
TKS_EXPORT extern const std::string_view TKSPkgTFSName;                     ///< "Kovra.pkg"
TKS_EXPORT extern const std::string_view TKSExeName;                        ///< "Tarvo Kovra Start"
TKS_EXPORT extern const std::string_view TKSMeetingsDBFileName;             ///< "TarvoMeetings.db"
TKS_EXPORT extern const std::string_view TKSLocalSettingsPlistName;         ///< "LocalSettings.plist"
TKS_EXPORT extern const std::string_view TKSForumName;                      ///< "Forum.app"
TKS_EXPORT extern const std::string_view TKSPlistFileName;                  ///< "ClientVersions.plist"
TKS_EXPORT extern const std::string_view TKSFeatureDataPlistFileName;       ///< "FeatureData.plist"
TKS_EXPORT extern const std::string_view TKSIBundleIDHuddle;                ///< "Tarvo-Systems.Ember"
TKS_EXPORT extern const std::string_view TKSIBundleIDHuddleDebug;           ///< "Tarvo-Systems.Ember.Debug"
TKS_EXPORT extern const std::string_view tempIPCFileNameFromTKS2Interface;  ///< "ipcFile_TKS2Interface"
TKS_EXPORT extern const std::string_view tempIPCFileNameFromInterface2TKS;  ///< "ipcFile_Interface2TKS"

// Keys of ClientVersions.plist and FeatureData.plist.

TKS_EXPORT extern const std::string_view TKSPlistKeyRestoreFolder;                 ///< "RestoreFolder"
TKS_EXPORT extern const std::string_view TKSPlistKeyRestoreTo;                     ///< "RestoreTo"
TKS_EXPORT extern const std::string_view TKSPlistKeyBaseOn;                        ///< "BaseOn"
TKS_EXPORT extern const std::string_view TKSPlistKeyVersions;                      ///< "Versions"
TKS_EXPORT extern const std::string_view TKSPlistKeyOneVersions;                   ///< "OneVersions"
TKS_EXPORT extern const std::string_view TKSPlistKeyJoinFirstBlockList;            ///< "JoinFirstBlockList"
TKS_EXPORT extern const std::string_view TKSPlistKeyJoinFirstBlockList2_1;         ///< "JoinFirstBlack"
TKS_EXPORT extern const std::string_view TKSPlistKeyJoinFirstBlockList2_2;         ///< "List"
TKS_EXPORT extern const std::string_view TKSPlistKeyLastLaunchTime;                ///< "LastLaunchTime"
TKS_EXPORT extern const std::string_view TKSPlistKeyClientBuildVersion;            ///< "ClientBuildVersion"
TKS_EXPORT extern const std::string_view TKSPlistKeySiteDomain;                    ///< "SiteDomain"
TKS_EXPORT extern const std::string_view TKSPlistKeySupportConfero;                ///< "SupportConfero"
TKS_EXPORT extern const std::string_view TKSPlistKeyBuildArchitectures;            ///< "BuildArchitectures"
TKS_EXPORT extern const std::string_view TKSPlistKeyUpdateLaterVersions;           ///< "UpdateLaterVersions"
TKS_EXPORT extern const std::string_view TKSPlistKeyUsedProductVersions;           ///< "UsedProductVersions"
TKS_EXPORT extern const std::string_view TKSPlistKeyBrokenAppFolderLists;          ///< "BrokenAppFolderLists"
TKS_EXPORT extern const std::string_view TKSFeatureDataPlistKeyPendingWarmUpJobs;  ///< "PendingWarmUpJobs"

// Client parameter keys: the parameter dictionary handed to the launcher.

TKS_EXPORT extern const std::string_view TKSParamKey;                    ///< "gpcParam"
TKS_EXPORT extern const std::string_view ClientParamsKey;                ///< "clientParam"
TKS_EXPORT extern const std::string_view TKSParamKeyEnableMultiVersion;  ///< "EnableMultiVersion"
TKS_EXPORT extern const std::string_view TKSParamKeySiteDomain;          ///< "SiteDomain"
TKS_EXPORT extern const std::string_view TKSParamKeyProductVersion;      ///< "ProductVersion"
TKS_EXPORT extern const std::string_view TKSParamKeyBuildVersion;        ///< "BuildVersion"
TKS_EXPORT extern const std::string_view TKSParamKeyDownloadOnly;        ///< "DownloadOnly"
TKS_EXPORT extern const std::string_view TKSParamKeyMaxClientNum;        ///< "MaxClientNum"
TKS_EXPORT extern const std::string_view TKSParamKeyGpcComponentName;    ///< "GpcComponentName"
TKS_EXPORT extern const std::string_view TKSParamKeySiteConfigExtValue;  ///< "ParmSiteConfigExt_Value"
TKS_EXPORT extern const std::string_view TKSParamKeyClientPid;           ///< "ClientPid"
TKS_EXPORT extern const std::string_view TKSClientThemeType;             ///< "themeType"
TKS_EXPORT extern const std::string_view TKSMinSupportedClientVersionToLaunchMTAForAlarm;  ///< "41.12.0.35"
TKS_EXPORT extern const std::string_view tks_gpcdownloadonly_expected_1;                   ///< "1"
TKS_EXPORT extern const std::string_view tks_gpcdownloadonly_expected_true;                ///< "true"
TKS_EXPORT extern const std::string_view tks_enablemultiversion_expected;                  ///< "true"

// Client package parameter keys.

TKS_EXPORT extern const std::string_view TKSPackageParamKeyCommon;                 ///< "common"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyFM;                     ///< "kovra"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyAR;                     ///< "arena"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyCP;                     ///< "campus"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyJoinFirstVersions;      ///< "JoinFirstVersions"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyJoinFirstBlockList;     ///< "JoinFirstBlockList"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyJoinFirstBlockList2_1;  ///< "JoinFirstBlack"
TKS_EXPORT extern const std::string_view TKSPackageParamKeyJoinFirstBlockList2_2;  ///< "List"

// Launch task record in user defaults.

TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTask;               ///< "LaunchTask"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskStatus;         ///< "Status"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskTKSToken;       ///< "TKSToken"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskTKSPid;         ///< "TKSPid"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskCreateTime;     ///< "CreateTime"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskExpireTime;     ///< "ExpireTime"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskMessageDomain;  ///< "MessageDomain"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskMessageToken;   ///< "MessageToken"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskUserInfo;       ///< "UserInfo"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTaskTelemetryInfo;  ///< "TelemetryInfo"
TKS_EXPORT extern const std::string_view TKSTaskStatusExtInitTask;             ///< "ExtInitTask"
TKS_EXPORT extern const std::string_view TKSTaskStatusExtTryLaunchTKS;         ///< "ExtTryLaunchTKS"
TKS_EXPORT extern const std::string_view TKSTaskStatusTKSLaunched;             ///< "TKSLaunched"
TKS_EXPORT extern const std::string_view TKSTaskStatusExtConfirmLaunch;        ///< "ExtConfirmLaunch"
TKS_EXPORT extern const std::string_view TKSTaskStatusTKSSelfUpdated;          ///< "TKSSelfUpdated"
TKS_EXPORT extern const std::string_view TKSTaskStatusTKSLaunchProcessing;     ///< "TKSLaunchProcessing"
TKS_EXPORT extern const std::string_view TKSTaskStatusTKSLaunchSuccess;        ///< "TKSLaunchSuccess"
TKS_EXPORT extern const std::string_view TKSTaskStatusTKSLaunchFailed;         ///< "TKSLaunchFailed"

// Other user-defaults keys.

TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyDaemonPID;                  ///< "ConferoDaemonPID"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyPrefetchPID;                ///< "ConferoPrefetchPid"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeySelfUpdatingPID;            ///< "SelfUpdatingPID"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyLaunchedClientPIDs;         ///< "LaunchedClientPIDs"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyInstallTime;                ///< "InstallTime"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyUniversalLinks;             ///< "UniversalLinks"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyUniversalLinksLocalToggle;  ///< "UniversalLinksLocalToggle"
TKS_EXPORT extern const std::string_view
    TKSUserDefaultsKeyUniversalLinksEnabledCache;                                    ///< "UniversalLinksEnabledCache"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyUniversalLinksSetupTime;  ///< "UniversalLinksSetupTime"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeySiteLanguageID;           ///< "SiteLanguageID"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyIsLabDevice;              ///< "IsLabDevice"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyLabDeviceMeetingPath;     ///< "LabDeviceMeetingPath"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTelemetryHeaderDict;      ///< "telemetryHeaderDict"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTelemetryDomain;          ///< "telemetryDomain"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyExtTrackingID;            ///< "extTrackingID"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyTid;                      ///< "tid"
TKS_EXPORT extern const std::string_view TKSUserDefaultsKeyCid;                      ///< "cid"

// Feature toggles.

TKS_EXPORT extern const std::string_view TKSToggleKeyOptimizeForAppleSilicon;     ///< "OptimizeForAppleSilicon"
TKS_EXPORT extern const std::string_view TKSToggleKeyEnableDeltaUpdate;           ///< "EnableDeltaUpdate"
TKS_EXPORT extern const std::string_view TKSToggleKeyEnableJoinFirstUpdateLater;  ///< "EnableJoinFirstUpdateLater"
TKS_EXPORT extern const std::string_view
    TKSToggleKeyEnableRealTimeAlarmQualityIssue;  ///< "EnableRealTimeAlarmQualityIssue"
TKS_EXPORT extern const std::string_view TKSToggleKeyClientSPCompatibleVersionNo;  ///< "ClientSPCompatibleVersionNo"
TKS_EXPORT extern const std::string_view TKSToggleKeyEnableFollowSite;             ///< "EnableFollowSite"
TKS_EXPORT extern const std::string_view TKSToggleKeyEnableNewMTA;                 ///< "EnableNewMTAForMac"
TKS_EXPORT extern const std::string_view TKSToggleKeyEnableMacClientWarmUp;        ///< "EnableMacClientWarmUp"
TKS_EXPORT extern const std::string_view TKSToggleKeyMacWarmUpPolicy;              ///< "MacWarmUpPolicy"

// Keychain credential names. Names only: the library itself does not read the keychain.

TKS_EXPORT extern const std::string_view kovraKeyChainServiceName;             ///< "Kovra Meetings"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialAccessToken;   ///< "accessToken"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialExpireAtUTC;   ///< "expireAtUTC"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialTimeToLive;    ///< "timeToLive"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialRefreshToken;  ///< "refreshToken"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialDisplayName;   ///< "displayName"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialUserName;      ///< "username"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialScope;         ///< "Scope"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialSiteId;        ///< "siteid"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialUserId;        ///< "userid"
TKS_EXPORT extern const std::string_view kovraKeyChainCredentialEmail;         ///< "email"

// Telemetry, call results and error domains.

TKS_EXPORT extern const std::string_view TKSSafariAppExtKovraGroupId;       ///< "group.com.tarvo.kovra.meetings"
TKS_EXPORT extern const std::string_view TKSSafariAppExtCommonErrorDomain;  ///< "com.tarvo.kovra.SafariAppExtension"
TKS_EXPORT extern const std::string_view TKSUtilErrorDomain;                ///< "com.tarvo.kovra.TKSUtil"
TKS_EXPORT extern const std::string_view TKSTelemetryLogDictKeyIllegal;     ///< "illegal"
TKS_EXPORT extern const std::string_view TKSTelemetryLogDictKeyLegal;       ///< "legal"
TKS_EXPORT extern const std::string_view TKSCallResultKeyFreeSpaceMBytes;   ///< "FreeSpaceMBytes"
TKS_EXPORT extern const std::string_view TKSCallResultKeyTotalSpaceMBytes;  ///< "TotalSpaceMBytes"
TKS_EXPORT extern const std::string_view TKSCallResultKeyDiskInfo;          ///< "DiskInfo"
TKS_EXPORT extern const std::string_view TKSIDefaultDomain;                 ///< "TKSIDefaultDomain"
TKS_EXPORT extern const std::string_view TKSITKSDomain;                     ///< "TKSITKSDomain"

// Launch parameter keys: download, update and versions.

TKS_EXPORT extern const std::string_view tks_param_key_gpcproductversion;            ///< "gpcproductversion"
TKS_EXPORT extern const std::string_view tks_param_key_armclientproduct;             ///< "armclientproduct"
TKS_EXPORT extern const std::string_view tks_param_key_gpcurlroot;                   ///< "gpcurlroot"
TKS_EXPORT extern const std::string_view tks_param_key_gpcurlrootarm;                ///< "gpcurlrootarm"
TKS_EXPORT extern const std::string_view tks_param_key_backupurlroot;                ///< "backupurlroot"
TKS_EXPORT extern const std::string_view tks_param_key_backupurlrootarm;             ///< "backupurlrootarm"
TKS_EXPORT extern const std::string_view tks_param_key_chinaurlroot;                 ///< "chinaurlroot"
TKS_EXPORT extern const std::string_view tks_param_key_chinaurlrootarm;              ///< "chinaurlrootarm"
TKS_EXPORT extern const std::string_view tks_param_key_cdndomain;                    ///< "cdndomain"
TKS_EXPORT extern const std::string_view tks_param_key_gpccomponentname;             ///< "gpccomponentname"
TKS_EXPORT extern const std::string_view tks_param_key_gpcactiveinisection;          ///< "gpcactiveinisection"
TKS_EXPORT extern const std::string_view tks_param_key_loggingurl;                   ///< "loggingurl"
TKS_EXPORT extern const std::string_view tks_param_key_gpcdownloadonly;              ///< "gpcdownloadonly"
TKS_EXPORT extern const std::string_view tks_param_key_gpccertification;             ///< "gpccertification"
TKS_EXPORT extern const std::string_view tks_param_key_certificateshash;             ///< "certificatesHash"
TKS_EXPORT extern const std::string_view tks_param_key_clientparam_value;            ///< "clientparam_value"
TKS_EXPORT extern const std::string_view tks_param_key_gpcconfname;                  ///< "gpcconfname"
TKS_EXPORT extern const std::string_view tks_param_key_gpchostname;                  ///< "gpchostname"
TKS_EXPORT extern const std::string_view tks_param_key_packageparams;                ///< "clientpackageparams"
TKS_EXPORT extern const std::string_view tks_param_key_gpcatbootparams;              ///< "gpcatbootparams"
TKS_EXPORT extern const std::string_view tks_param_key_clientspcompatibleversionno;  ///< "clientspcompatibleversionno"
TKS_EXPORT extern const std::string_view tks_param_key_gpcloadingmeetingfastflag;    ///< "gpcloadingmeetingfastflag"
TKS_EXPORT extern const std::string_view tks_param_key_gpcwindowtitle;               ///< "gpcwindowtitle"
TKS_EXPORT extern const std::string_view tks_param_key_urlprotocolversion;           ///< "urlprotocolversion"
TKS_EXPORT extern const std::string_view tks_param_key_tksversion;                   ///< "tksversion"
TKS_EXPORT extern const std::string_view tks_param_key_armtksversion;                ///< "armtksversion"
TKS_EXPORT extern const std::string_view tks_param_key_tkshash;                      ///< "tkshash"
TKS_EXPORT extern const std::string_view tks_param_key_armtkshash;                   ///< "armtkshash"
TKS_EXPORT extern const std::string_view tks_param_key_tkssignature;                 ///< "tkssignature"
TKS_EXPORT extern const std::string_view tks_param_key_armtkssignature;              ///< "armtkssignature"
TKS_EXPORT extern const std::string_view tks_param_key_clientbuildversion;           ///< "clientbuildversion"
TKS_EXPORT extern const std::string_view tks_param_key_localclientbuildversion;      ///< "localclientbuildversion"
TKS_EXPORT extern const std::string_view tks_param_key_originalclientbuildversion;   ///< "originalclientbuildversion"
TKS_EXPORT extern const std::string_view tks_param_key_issilentdownload;             ///< "issilentdownload"
TKS_EXPORT extern const std::string_view tks_param_key_enablemulticlientversion;     ///< "enablemulticlientversion"
TKS_EXPORT extern const std::string_view tks_param_key_joinfirstupdatelater;         ///< "enablejoinfirstupdatelater"
TKS_EXPORT extern const std::string_view tks_param_key_enablesplitpackage;           ///< "enablesplitpackage"
TKS_EXPORT extern const std::string_view tks_param_key_tkstimeoutseconds;            ///< "tkstimeoutseconds"
TKS_EXPORT extern const std::string_view tks_param_key_universallinkssetupurl;       ///< "universallinkssetupurl"
TKS_EXPORT extern const std::string_view tks_param_key_needcleanandretry;            ///< "needcleanandretry"
TKS_EXPORT extern const std::string_view tks_param_key_clientprogress;               ///< "clientprogress"
TKS_EXPORT extern const std::string_view tks_param_key_gpclocalsetting;              ///< "gpclocalsetting"
TKS_EXPORT extern const std::string_view tks_param_key_gpcsitedomain;                ///< "gpcsitedomain"
TKS_EXPORT extern const std::string_view tks_param_key_incompatibleversions;         ///< "incompatibleversions"
TKS_EXPORT extern const std::string_view tks_param_key_followsite;                   ///< "followsite"
TKS_EXPORT extern const std::string_view tks_param_key_inmeetingupdate;              ///< "inmeetingupdate"
TKS_EXPORT extern const std::string_view tks_param_key_needupdatedpid;               ///< "needupdatedpid"
TKS_EXPORT extern const std::string_view tks_param_key_incompatibleversionerror;     ///< "incompatibleversionerror"
TKS_EXPORT extern const std::string_view tks_param_key_working_folder;               ///< "workingFolder"

// Launch parameter keys: meeting and behaviour.

TKS_EXPORT extern const std::string_view tks_param_key_meetingid;             ///< "meetingid"
TKS_EXPORT extern const std::string_view tks_param_key_meetingparams;         ///< "meetingparams"
TKS_EXPORT extern const std::string_view tks_param_key_jmtclicklog;           ///< "jmtclicklog"
TKS_EXPORT extern const std::string_view tks_param_key_regtype;               ///< "regtype"
TKS_EXPORT extern const std::string_view tks_param_key_meetsimpleui;          ///< "meetsimpleui"
TKS_EXPORT extern const std::string_view tks_param_key_setupapplication;      ///< "setupapplication"
TKS_EXPORT extern const std::string_view tks_param_key_kovraappparams;        ///< "kovraappparams"
TKS_EXPORT extern const std::string_view tks_param_key_onetimetoken;          ///< "onetimetoken"
TKS_EXPORT extern const std::string_view tks_param_key_correlationid;         ///< "correlationid"
TKS_EXPORT extern const std::string_view tks_param_key_trackingid;            ///< "trackingid"
TKS_EXPORT extern const std::string_view tks_param_key_meetingkey;            ///< "meetingkey"
TKS_EXPORT extern const std::string_view tks_param_key_meetingrandom;         ///< "meetingrandom"
TKS_EXPORT extern const std::string_view tks_param_key_launchmethod;          ///< "launchmethod"
TKS_EXPORT extern const std::string_view tks_param_key_featurepayloads;       ///< "featurepayloads"
TKS_EXPORT extern const std::string_view tks_param_key_ignoredelayredirect;   ///< "ignoredelayredirect"
TKS_EXPORT extern const std::string_view tks_param_key_enableuniversallinks;  ///< "enablemacosuniversallinks"
TKS_EXPORT extern const std::string_view tks_param_key_enableinappjoin;       ///< "enableinappjoin"
TKS_EXPORT extern const std::string_view tks_param_key_useunivlinksdocshow;   ///< "useuniversallinksdocshow"
TKS_EXPORT extern const std::string_view tks_param_key_originbrowsertype;     ///< "originbrowsertype"
TKS_EXPORT extern const std::string_view tks_param_key_ucfjmts;               ///< "ucfjmts"

// Launch parameter values.

TKS_EXPORT extern const std::string_view tks_param_value_common_true;                           ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_common_false;                          ///< "0"
TKS_EXPORT extern const std::string_view tks_param_value_common_true2;                          ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_common_false2;                         ///< "false"
TKS_EXPORT extern const std::string_view tks_param_value_gpcdownloadonly_true;                  ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_gpcdownloadonly_false;                 ///< "0"
TKS_EXPORT extern const std::string_view tks_param_value_gpcdownloadonly_true_2;                ///< "TRUE"
TKS_EXPORT extern const std::string_view tks_param_value_meetsimpleui_expected;                 ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_meetsimpleui_expected_2;               ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_gpcloadingmeetingfastflag_expected;    ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_gpcloadingmeetingfastflag_expected_2;  ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_issilentdownload_expected;             ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_issilentdownload_expected_2;           ///< "TRUE"
TKS_EXPORT extern const std::string_view tks_param_value_tkstimeoutseconds_min_value;           ///< "30"
TKS_EXPORT extern const std::string_view tks_param_value_joinfirstupdatelater_expected;         ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_joinfirstupdatelater_expected_2;       ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_enablemulticlientversion_expected;     ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_enablemulticlientversion_expected_2;   ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_enablesplitpackage_expected;           ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_setupapplication_unexpected;           ///< "0"
TKS_EXPORT extern const std::string_view tks_param_value_setupapplication_expected;             ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_setupapplication_expected_2;           ///< "true"
TKS_EXPORT extern const std::string_view tks_param_value_gpcactiveinisection_fm;                ///< "Kovra"
TKS_EXPORT extern const std::string_view tks_param_value_gpcactiveinisection_ar;                ///< "KovraAR"
TKS_EXPORT extern const std::string_view tks_param_value_gpcactiveinisection_cp;                ///< "KovraCP"
TKS_EXPORT extern const std::string_view tks_param_value_gpccomponentname_fm;                   ///< "atconfui.bundle"
TKS_EXPORT extern const std::string_view tks_param_value_gpccomponentname_fm2;                  ///< "kvxmgrfm.bundle"
TKS_EXPORT extern const std::string_view tks_param_value_gpccomponentname_ar;                   ///< "kvxmgrar.bundle"
TKS_EXPORT extern const std::string_view tks_param_value_gpccomponentname_cp;                   ///< "kvxmgrcp.bundle"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_hx;                       ///< "101"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_parley;                   ///< "102"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_huddle;                   ///< "103"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_firefox;                  ///< "9"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_safari;                   ///< "10"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_chrome;                   ///< "12"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_host_universal_links;          ///< "16"
TKS_EXPORT extern const std::string_view tks_param_value_regtype_universal_links_v1;            ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_joinfirst_not_support;                 ///< "0"
TKS_EXPORT extern const std::string_view tks_param_value_joinfirst_ep_level;                    ///< "1"
TKS_EXPORT extern const std::string_view tks_param_value_joinfirst_sp_level;                    ///< "2"
TKS_EXPORT extern const std::string_view tks_param_value_ignoredelayredirect_true;              ///< "1"

// Values set when the library is built.

/// The keychain access group: the maker's Team ID, then ".com.kovra.logintokenshare".
TKS_EXPORT extern const std::string_view kovraKeyChainShareGroupName;
/// The maker's ten-character Developer Team ID.
TKS_EXPORT extern const std::string_view TKSTarvoCodeSignTeamID;
/// The default message domain, a host name.
TKS_EXPORT extern const std::string_view TKSCommonClientErrorDomain;
/// Domain of errors made while messages are parsed; the same host name as TKSCommonClientErrorDomain.
TKS_EXPORT extern const std::string_view commonErrorDomain;
/// Site domain of the designated locked insider site.
TKS_EXPORT extern const std::string_view designatedLockedInsiderSiteDomain;
/// Site domain of the designated locked developer-channel site.
TKS_EXPORT extern const std::string_view designatedLockedDevchannelSiteDomain;
/// The telemetry endpoint: an https URL whose path is /metric/v1.
TKS_EXPORT extern const std::string_view designatedTelemetryUrl;
/// Common name of the maker's leaf certificate: "Developer ID Application: Tarvo (", the Team ID, ")".
TKS_EXPORT extern const std::string_view kTarvoCertificate;
