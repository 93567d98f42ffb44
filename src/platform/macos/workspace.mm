// The workspace service on macOS: the application bundle opened as an application of its
// own through NSWorkspace.
//
// Memory: compiled with ARC. Threads: called on the main thread before any loop runs; the
// completion handler runs on a queue of the workspace's, and the caller waits for it.
#import <AppKit/AppKit.h>

#include "platform/workspace.h"

namespace bwk::platform {

namespace {
std::optional<std::string> text(NSString* s) {
  const char* utf8 = s ? s.UTF8String : nullptr;
  return utf8 ? std::optional<std::string>(utf8) : std::nullopt;
}
}  // namespace

OpenResult openApplication(const std::string& bundlePath, const std::optional<std::string>& /*executableName*/,
                           const std::optional<std::vector<std::string>>& arguments, unsigned long options) {
  @autoreleasepool {
    NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
    if (arguments) {
      // The workspace hands arguments over as text. A word that is not UTF-8 has no string
      // object; passing another text in its place would hand the application a different
      // file name, so the open fails and says which word.
      NSMutableArray<NSString*>* words = [NSMutableArray array];
      for (const std::string& word : *arguments) {
        NSString* text = [NSString stringWithUTF8String:word.c_str()];
        if (text == nil) {
          OpenResult refused;
          refused.error = "the argument \"" + word + "\" is not UTF-8 text, which the workspace cannot pass on";
          return refused;
        }
        [words addObject:text];
      }
      configuration.arguments = words;
    }
    configuration.addsToRecentItems = (options & kLaunchWithoutAddingToRecents) == 0;
    configuration.activates = (options & kLaunchWithoutActivation) == 0;
    configuration.hides = (options & kLaunchAndHide) != 0;
    configuration.createsNewApplicationInstance = YES;

    NSURL* url = [NSURL fileURLWithFileSystemRepresentation:bundlePath.c_str() isDirectory:YES relativeToURL:nil];
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
    if (failure) result.error = text(failure.localizedDescription).value_or("unknown error");
    if (opened) result.application = OpenedApplication{opened.processIdentifier, text(opened.description).value_or("")};
    return result;
  }
}

}  // namespace bwk::platform
