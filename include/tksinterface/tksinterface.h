#pragma once

/// Everything of the library. A host that wants less includes the header of the class that it uses.
#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSError.h>
#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSInstallProgress.h>
#include <tksinterface/TKSInterface.h>
#include <tksinterface/TKSLaunchVocabulary.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSMessageHost.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <tksinterface/TKSOptions.h>
#include <tksinterface/TKSRunningApplication.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>
#include <tksinterface/TKSUtilBaseHelper.h>
#include <tksinterface/TKSValue.h>
#include <tksinterface/TKSVersion.h>
