# tks_make_bundle(TARGET [NAME name] [EXECUTABLE name] [IDENTIFIER identifier] [VERSION version] [DISPLAY_NAME name]
#                 [FOLDER folder] [BACKGROUND])
# Puts a program into an application bundle: NAME.app, in FOLDER or in tests/bundles of the build folder. NAME is the
# target's name and EXECUTABLE is NAME unless said otherwise; without IDENTIFIER the bundle declares none. BACKGROUND:
# macOS shows it neither in the Dock nor in a menu bar. The target's property TKS_BUNDLE holds the bundle's path.
function(tks_make_bundle target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "BACKGROUND" "NAME;EXECUTABLE;IDENTIFIER;VERSION;DISPLAY_NAME;FOLDER" "")
  if(NOT arg_NAME)
    set(arg_NAME ${target})
  endif()
  if(NOT arg_EXECUTABLE)
    set(arg_EXECUTABLE ${arg_NAME})
  endif()
  if(NOT arg_VERSION)
    set(arg_VERSION 1.0)
  endif()
  if(NOT arg_FOLDER)
    set(arg_FOLDER ${PROJECT_BINARY_DIR}/tests/bundles)
  endif()

  set(keys "")
  foreach(pair "CFBundleExecutable=${arg_EXECUTABLE}" "CFBundleIdentifier=${arg_IDENTIFIER}"
               "CFBundleName=${arg_NAME}" "CFBundleDisplayName=${arg_DISPLAY_NAME}" "CFBundlePackageType=APPL"
               "CFBundleShortVersionString=${arg_VERSION}" "CFBundleVersion=${arg_VERSION}")
    string(REGEX MATCH "^([^=]*)=(.*)$" matched "${pair}")
    if(NOT CMAKE_MATCH_2 STREQUAL "")
      string(APPEND keys "  <key>${CMAKE_MATCH_1}</key>\n  <string>${CMAKE_MATCH_2}</string>\n")
    endif()
  endforeach()
  if(arg_BACKGROUND)
    string(APPEND keys "  <key>LSUIElement</key>\n  <true/>\n")
  endif()
  set(bundle "${arg_FOLDER}/${arg_NAME}.app")
  file(CONFIGURE OUTPUT "${bundle}/Contents/Info.plist" @ONLY CONTENT [[
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
@keys@</dict>
</plist>
]])
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${bundle}/Contents/MacOS"
                                             OUTPUT_NAME "${arg_EXECUTABLE}"
                                             TKS_BUNDLE "${bundle}")
endfunction()
