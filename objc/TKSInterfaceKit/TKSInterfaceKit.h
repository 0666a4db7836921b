#pragma once

/// The library for hosts in Objective-C and Swift.
#import <TKSInterfaceKit/TKSConstants.h>
#import <TKSInterfaceKit/TKSILog.h>
#import <TKSInterfaceKit/TKSInterface.h>
#import <TKSInterfaceKit/TKSMainLoop.h>
