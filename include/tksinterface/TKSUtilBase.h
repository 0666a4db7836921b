#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSRunningApplication.h>
#include <tksinterface/TKSValue.h>

/// Called on the main thread with the running application, or with the error.
using TKSLaunchResultBlock =
    std::function<void(const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& error)>;

/// The stateless operations that the rest of the library, the launcher and hosts share. All are class operations;
/// unless one says otherwise they may be called on any thread, run on the caller's thread and keep nothing. An error
/// out-parameter may be null and is written only on failure. Paths are absolute UTF-8 texts.
class TKS_EXPORT TKSUtilBase {
 public:
  // Folder layout. Paths are computed at each call from the user's real home; nothing is created but the temporary
  // folder.

  /// `getRealHomeDirectory` Home of the process's user from the password database, whatever HOME says.
  static std::string getRealHomeDirectory();
  /// `getUserLibraryDirectory` home/Library
  static std::string getUserLibraryDirectory();
  /// `getUserPreferenceDirectory` home/Library/Preferences
  static std::string getUserPreferenceDirectory();
  /// `getApplicationSupportDirectory` home/Library/Application Support
  static std::string getApplicationSupportDirectory();
  /// `getUserLogsDirectory` home/Library/Logs
  static std::string getUserLogsDirectory();
  /// `getKovraFolderPath` Application Support/Kovra Folder
  static std::string getKovraFolderPath();
  /// `getStandardTKSPath` Where the launcher is installed: Kovra Folder/Add-ons/Tarvo Kovra Start.app
  static std::string getStandardTKSPath();
  /// `getKovraDataPath` Application Support/Kovra Meetings
  static std::string getKovraDataPath();
  /// `getKovraAppDataPath` Kovra Meetings/AppData
  static std::string getKovraAppDataPath();
  /// `getClientVersionsPlistPath` AppData/ClientVersions.plist
  static std::string getClientVersionsPlistPath();
  /// `getCommonDataPlistPath` The same file as getClientVersionsPlistPath.
  static std::string getCommonDataPlistPath();
  /// `getFeatureDataPlistPath` AppData/FeatureData.plist
  static std::string getFeatureDataPlistPath();
  /// `getKovraReportsPath` Kovra Meetings/Reports
  static std::string getKovraReportsPath();
  /// `getKovraIniCachePath` Kovra Meetings/IniCache
  static std::string getKovraIniCachePath();
  /// `getKovraParamsPathForFM` Kovra Meetings/Params
  static std::string getKovraParamsPathForFM();
  /// `getKovraDownloadsPath` Kovra Meetings/Downloads
  static std::string getKovraDownloadsPath();
  /// `getKovraLogsPath` home/Library/Logs/Kovra Meetings
  static std::string getKovraLogsPath();
  /// `getTempFolderPath` Temporary directory/identifier of the host's bundle, made if need be; the temporary directory
  /// itself for a host without an identifier.
  static std::string getTempFolderPath();

  // Meeting-client versions beside the launcher.

  /// `sortedLocalFMFolders` Names of the version folders, newest version first; nothing when they cannot be listed.
  static std::optional<std::vector<std::string>> sortedLocalFMFolders();
  /// `sortedLocalFMVersions` Their versions in the same order.
  static std::optional<std::vector<std::string>> sortedLocalFMVersions();
  /// `forumPathWithVersion:` Path of "Forum.app" in the first folder of that version; nothing when there is none.
  static std::optional<std::string> forumPathWithVersion(std::string_view version);
  /// `getClientBuildVersionOfFMPath:` Build version of a "Forum.app": from its Info.plist, else from its folder's name;
  /// possibly empty.
  static std::string getClientBuildVersionOfFMPath(std::string_view forumPath);

  // Preferences and property lists.

  /// `getPreference:` The value under a key path of the process's preferences, or nothing.
  static TKSValue getPreference(const TKSKeyPath& keyPath);
  /// `setPreference:value:` Stores a value; false when the first key holds something that is no dictionary.
  static bool setPreference(const TKSKeyPath& keyPath, const TKSValue& value);
  /// `getValueFormPlist:plistPath:` The value under a key path of a property-list file, or nothing.
  static TKSValue getValueFormPlist(const TKSKeyPath& keyPath, std::string_view plistPath);
  /// @copydoc getValueFormPlist(const TKSKeyPath&, std::string_view)
  static TKSValue getValueFormPlist(const TKSKeyPath& keyPath, const std::string& plistPath);
  /// @copydoc getValueFormPlist(const TKSKeyPath&, std::string_view)
  static TKSValue getValueFormPlist(const TKSKeyPath& keyPath, const char* plistPath);
  /// `getValueFormPlist:plistDict:` The value under a key path of a dictionary, or nothing.
  static TKSValue getValueFormPlist(const TKSKeyPath& keyPath, const TKSDictionary& plistDict);
  /// `setPlist:value:plistPath:` Stores a value in a property-list file, which is made when missing and replaced as a
  /// whole; what stands in the way on the key path is replaced by dictionaries.
  static bool setPlist(const TKSKeyPath& keyPath, const TKSValue& value, std::string_view plistPath);
  /// `setValueForDict:value:plistDict:` Stores a value in a dictionary, in place, and returns it. A null pointer starts
  /// a new dictionary.
  static TKSDictionary setValueForDict(const TKSKeyPath& keyPath, const TKSValue& value, TKSDictionary* plistDict);
  /// `getValueInInfoPlist:forKey:` A value of an application's information, or nothing.
  static TKSValue getValueInInfoPlist(std::string_view appPath, std::string_view key);
  /// `getBundleVersion:` CFBundleVersion of an application, or nothing.
  static TKSValue getBundleVersion(std::string_view appPath);
  /// `getClientPackageParam:keyPath:` The value under a key path of a base64-encoded JSON document, or nothing.
  static TKSValue getClientPackageParam(std::string_view base64JSON, const TKSKeyPath& keyPath);

  // Versions, queries and loosely typed values.

  /// `isNewerVersion:localVersion:` Whether `newVersion` counts as newer. A different number of parts always does.
  static bool isNewerVersion(std::string_view newVersion, std::string_view localVersion);
  /// `getURLQueryDict:` The query of a URL as dictionary of texts; nothing when there is none. Nothing is decoded.
  static std::optional<TKSDictionary> getURLQueryDict(std::string_view url);
  /// `getQueryDict:` The same for the text after the "?".
  static std::optional<TKSDictionary> getQueryDict(std::string_view query);
  /// `getParamDictFromPath:` Reads a file of lines PREFIX(9) KEY -=-[VALUE]-=- VALUE SUFFIX(3); nothing when it is
  /// missing.
  static std::optional<TKSDictionary> getParamDictFromPath(std::string_view path);
  /// `isCaseInsensitiveTrue:` Whether a text equals one of the candidates, ignoring case.
  static bool isCaseInsensitiveTrue(const TKSValue& value, std::initializer_list<std::string_view> candidates);
  /// `checkAndDecodeBase64:` What base64 stands for, the text itself when it is none, nothing for other values.
  static std::optional<std::string> checkAndDecodeBase64(const TKSValue& origin);
  /// `getParamsFromEncodedDic:paramKey:error:` The JSON object in the base64 text under a key, or nothing.
  static TKSValue getParamsFromEncodedDic(const TKSDictionary& encodedDic, std::string_view paramKey,
                                          TKSError* error = nullptr);
  /// `encodeURLString:` Percent-encodes; visits as many bytes as the text has UTF-16 units.
  static std::string encodeURLString(std::string_view text);
  /// `canBeTransferedToNumFromString:` Whether a text consists of ASCII digits only.
  static bool canBeTransferedToNumFromString(const TKSValue& value);
  /// `isMatchedToRegex:forString:` Whether one of the comma-separated patterns is found in the text, ignoring case.
  static bool isMatchedToRegex(std::string_view patterns, std::string_view text);
  /// `isTrueValueFromId:` A number that is not zero, or the text "1" or "true" in any case.
  static bool isTrueValueFromId(const TKSValue& value);

  // Errors and JSON.

  /// `generateTKSInterfaceDefaultError:` Domain TKSIDefaultDomain, code 0.
  static TKSError generateTKSInterfaceDefaultError(std::string_view message);
  /// `generateTKSInterfaceError:domain:code:` An empty message becomes "Unknown error.", an empty domain the default
  /// one.
  static TKSError generateTKSInterfaceError(std::string_view message, std::string_view domain, std::int32_t code);
  /// `JSONStringToObject:error:` Reads a JSON object or array; nothing, and `error`, when the text is neither.
  static TKSValue JSONStringToObject(std::string_view text, TKSError* error = nullptr);
  /// `objectToJSONString:error:` Compact JSON text; nothing, and `error`, for what JSON cannot hold.
  static std::optional<std::string> objectToJSONString(const TKSValue& object, TKSError* error = nullptr);

  // System and device.

  /// `getSystemLanguage` Locale identifier such as "de_DE"; never empty.
  static std::string getSystemLanguage();
  /// `createUUID` A new random UUID, 36 characters in lower case.
  static std::string createUUID();
  /// `isLabDevice` Whether the preference "IsLabDevice" is a true number.
  static bool isLabDevice();
  /// `getDeviceInfo` The processor's brand text; nothing before the first isAppleSiliconDevice.
  static std::optional<std::string> getDeviceInfo();
  /// `formatedSize:` The number with the locale's grouping; nothing for a value that is no number.
  static std::optional<std::string> formatedSize(const TKSValue& number);
  /// `checkDiskSpaceInfo:` FreeSpaceMBytes, TotalSpaceMBytes and DiskInfo of the documents' volume; empty on failure.
  static TKSDictionary checkDiskSpaceInfo(TKSError* error = nullptr);
  /// `isAppleSiliconDevice` Found out once per process.
  static bool isAppleSiliconDevice();

  // File attributes.

  /// `removeQuarantineAttribute:` Removes the download quarantine mark from the item itself.
  static void removeQuarantineAttribute(std::string_view appPath);
  /// `addReadAndWritePermissionToFile:` Adds the permissions 0755.
  static void addReadAndWritePermissionToFile(std::string_view filePath);

  // Files and folders. An error is the file manager's.

  /// `removeFileAtPath:error:` Removes a file or a whole folder; whether it is gone, also when it never existed.
  static bool removeFileAtPath(std::string_view filePath, TKSError* error = nullptr);
  /// `copyFileAtPath:toPath:error:` Copies a file or a whole folder over whatever is at the destination, and makes the
  /// folders above it. A source that is missing counts as copied.
  static bool copyFileAtPath(std::string_view fromPath, std::string_view toPath, TKSError* error = nullptr);
  /// `moveFileAtPath:toPath:error:` Moves to where nothing is yet. A source that is missing counts as moved.
  static bool moveFileAtPath(std::string_view fromPath, std::string_view toPath, TKSError* error = nullptr);
  /// `cleanUpFolderPath:force:` Removes a folder. Applications that run from inside are ended first if `force` says so;
  /// else nothing is removed when there is one. Whether the folder is gone.
  static bool cleanUpFolderPath(std::string_view folderPath, bool force);

  // Trust.

  /// `checkTrust:error:` Whether a bundle's signature is intact and the maker's.
  static bool checkTrust(std::string_view path, TKSError* error = nullptr);
  /// `checkTrustForLaunch:error:` Whether the maker signed a bundle; always so in test mode.
  static bool checkTrustForLaunch(std::string_view path, TKSError* error = nullptr);
  /// `isTestModeTKS` Whether this is a lab device (and the library was built to allow that).
  static bool isTestModeTKS();

  // Health of an installed launcher.

  /// `isBrokenApp:` Whether a launcher bundle is missing or refused by the system's assessment. No, with a line of
  /// level 8, where no assessment can be made. May take seconds.
  static bool isBrokenApp(std::string_view appPath);
  /// `hashFilePropertiesWithAppPath:` Digest of the list of processes that hold the path open; nothing when it is
  /// missing.
  static std::optional<std::string> hashFilePropertiesWithAppPath(std::string_view appPath);
  /// `willShowVerifyDialogFor:` Whether the system will ask the user to confirm the first opening.
  static bool willShowVerifyDialogFor(std::string_view appPath);
  /// `appHaveBeenUsed:` Whether the application has a last-used date.
  static bool appHaveBeenUsed(std::string_view appPath);

  // Installing.

  /// `installTKSVersion:backupZipPath:targetPath:` Replaces the bundle at the target by the launcher in a zip archive,
  /// when that is signed by the maker, supported and of the given version; whether the target is then in place and
  /// healthy. At every moment the target is the old launcher or the new one. A launcher that the health check finds
  /// broken afterwards is removed. Installations of one user wait for each other. Takes seconds: keep it off the main
  /// thread.
  static bool installTKSVersion(std::string_view version, std::string_view backupZipPath, std::string_view targetPath);
  /// `isSafeToInstall:tellingVersion:error:` Whether an unpacked package is the maker's and of the version that is
  /// told. A plain file whose name ends in ".dylib" has no version to compare.
  static bool isSafeToInstall(std::string_view packagePath, std::string_view tellingVersion, TKSError* error = nullptr);
  /// `isSupportedTKSVersion:` Whether the main version is at least TKSMinSupportedMainVersion.
  static bool isSupportedTKSVersion(std::string_view version);
  /// `checkLaunchService` Makes the launcher at the standard path and its app extensions executable for their owner.
  static void checkLaunchService();
  /// `getTKSBuildArchitecture` "BuildArchitectures" of the launcher at the standard path; read once per process.
  static std::optional<std::string> getTKSBuildArchitecture();
  /// `isArmArchitecturalApp:` Whether that value names "arm64". The path is not used.
  static bool isArmArchitecturalApp(std::string_view appPath);

  // Archives. The tools' exit status is not examined: look at what is there afterwards.

  /// `unzip:to:` Unpacks a zip archive into a folder with the system's tool. Files that are there already stay as they
  /// are, whether older or newer than the archive's.
  static void unzip(std::string_view zipPath, std::string_view to);
  /// `untar:to:` Unpacks a tar archive into a folder with the system's tool.
  static void untar(std::string_view archivePath, std::string_view to);

  // Where downloaded files came from, and delta updates.

  /// `getDownloadURLFromFile:` The address that a downloaded file came from: the first entry of its where-from
  /// attribute; nothing when it has none. A hint only, for anybody can write the attribute.
  static TKSValue getDownloadURLFromFile(std::string_view filePath);
  /// `getProperty:fromFile:` The property list in an extended attribute, when it is an array with at least one entry.
  /// On macOS 10.15 and later a missing attribute resets this host's access to the file's folder and is looked for
  /// again.
  static TKSValue getProperty(std::string_view property, std::string_view filePath);
  /// `resetAppAccessWithPkgPath:` Resets the host's recorded privacy decision for the folder that holds the path.
  static void resetAppAccessWithPkgPath(std::string_view pkgPath);
  /// `getSystemPolicyFolderToResetAccess:` Name of the privacy service for that folder.
  static std::string getSystemPolicyFolderToResetAccess(std::string_view pkgPath);
  /// `avaliableDeltaUpdates:error:` The delta packages that a server offers: version to a dictionary of "version",
  /// "hash", "size" and "path". Nothing when the base address is empty or no package was found. Waits for the download
  /// (a server that is silent for 5 s ends it): keep it off the main thread.
  static std::optional<TKSDictionary> avaliableDeltaUpdates(std::string_view baseURL, TKSError* error);

  // Processes.

  /// `launchAppWithExePath:args:launchResult:` Starts an executable in the background and calls back on the main
  /// thread.
  static void launchAppWithExePath(std::string_view exePath, const std::vector<std::string>& args,
                                   TKSLaunchResultBlock launchResult);
  /// `launchAppWithExePath:args:error:` Starts an executable of a bundle as a child process and waits until it is
  /// listed as a running application (up to about 30 s; keep it off the main thread). With "-Communicate" and "Pipe"
  /// among the arguments, and no "File", this process's standard output then feeds the child's standard input and its
  /// standard input reads the child's standard output. Nothing on failure, and for a start with "-warmup", which does
  /// not wait.
  static std::optional<TKSRunningApplication> launchAppWithExePath(std::string_view exePath,
                                                                   const std::vector<std::string>& args,
                                                                   TKSError* error);
  /// `launchApp:args:error:` Starts a new instance of an application bundle, in a session of its own; retries up to ten
  /// times, 100 ms apart, unless the arguments hold "-warmup".
  static std::optional<TKSRunningApplication> launchApp(std::string_view appPath, const std::vector<std::string>& args,
                                                        TKSError* error);
  /// `endLaunchModules` Ends all running launchers; false when one could not be ended.
  static bool endLaunchModules();
  /// `forceTerminateApp:` Ends an application at once and waits up to about 5 s; whether the process is gone.
  static bool forceTerminateApp(const std::optional<TKSRunningApplication>& application);

  /// A private descriptor of the standard input that this process has when this is first called, or had when a
  /// pipe-mode launch first replaced it: the same number for the rest of the process, and -1 when there was none. Owned
  /// by the library: read it, never close it.
  static int originalStandardInput();
  /// The same for the standard output.
  static int originalStandardOutput();
};
