// The workspace service on macOS: the application bundle opened as an application of its
// own through NSWorkspace.
//
// Memory: compiled with ARC. Threads: called on the main thread before any loop runs; the
// completion handler runs on a queue of the workspace's, and the caller waits for it.
#import <AppKit/AppKit.h>

#include "platform/workspace.h"

namespace bwk::platform {

OpenResult openApplication(const std::string& bundlePath, const std::optional<std::string>& /*executableName*/,
                           const std::optional<std::vector<std::string>>& arguments, unsigned long options) {
  @autoreleasepool {
    NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
    if (arguments) {
      NSMutableArray<NSString*>* words = [NSMutableArray array];
      for (const std::string& word : *arguments) [words addObject:[NSString stringWithUTF8String:word.c_str()] ?: @""];
      configuration.arguments = words;
    }
    configuration.addsToRecentItems = (options & kLaunchWithoutAddingToRecents) == 0;
    configuration.activates = (options & kLaunchWithoutActivation) == 0;
    configuration.hides = (options & kLaunchAndHide) != 0;
    configuration.createsNewApplicationInstance = YES;

    NSURL* url = [NSURL fileURLWithPath:[NSString stringWithUTF8String:bundlePath.c_str()] isDirectory:YES];
    dispatch_semaphore_t done = dispatch_semaphore_create(0);
    __block NSRunningApplication* opened = nil;
    __block NSError* failure = nil;
    [[NSWorkspace sharedWorkspace] openApplicationAtURL:url
                                          configuration:configuration
                                      completionHandler:^(NSRunningApplication* application, NSError* error) {
                                        opened = application;
                                        failure = error;
                                        dispatch_semaphore_signal(done);
                                      }];
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);

    OpenResult result;
    if (failure) result.error = std::string(failure.localizedDescription.UTF8String ?: "unknown error");
    if (opened)
      result.application = OpenedApplication{opened.processIdentifier, std::string(opened.description.UTF8String ?: "")};
    return result;
  }
}

}  // namespace bwk::platform
