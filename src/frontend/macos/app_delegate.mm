// Application mode on macOS: the application object's main loop, the delegate that the main
// interface file instantiates (its outlets are the progress window's controls), the
// application menu, and the quit hook.
#import <Cocoa/Cocoa.h>
#include <dlfcn.h>
#include <mach-o/dyld.h>

#include <cstring>

#include "base/bundle.h"
#include "base/format.h"
#include "base/log.h"
#include "install/app_delegate.h"
#include "install/application.h"
#include "launcher/launcher.h"

@class AppDelegate;
// Inside namespace bwk, AppDelegate names the C++ class of the worker.
typedef AppDelegate BWKDelegateObject;

namespace bwk {

// The worker's window changes, queued to the main thread.
class CocoaProgressWindow final : public ProgressWindow {
 public:
  explicit CocoaProgressWindow(BWKDelegateObject* owner) : owner_(owner) {}
  void setProgress(double value) override;
  void beginLaunch() override;
  void closeAfter(double seconds) override;

 private:
  BWKDelegateObject* owner_;
};

}  // namespace bwk

namespace {

NSString* ns(const std::string& s) { return [NSString stringWithUTF8String:s.c_str()]; }
NSString* message(const char* key, const std::optional<std::string>& info = std::nullopt) {
  return ns(bwk::Launcher::getMessage(key, info).value_or(""));
}

}  // namespace

@interface AppDelegate : NSObject <NSApplicationDelegate> {
  bwk::AppDelegate* _delegate;
  bwk::CocoaProgressWindow* _progress;
}
@property(assign) IBOutlet NSImageView* iconView;
@property(assign) IBOutlet NSWindow* window;
@property(assign) IBOutlet NSProgressIndicator* progressBar;
@property(assign) IBOutlet NSButton* cancelButton;
@property(assign) IBOutlet NSTextField* label;
@property(assign) IBOutlet NSTextField* progressLabel;
- (IBAction)cancel:(id)sender;
@end

@implementation AppDelegate

- (instancetype)init {
  if ((self = [super init])) {
    // Both live as long as the process: the worker ends it with exit().
    _delegate = new bwk::AppDelegate();
    _progress = new bwk::CocoaProgressWindow(self);
    _delegate->window = _progress;
  }
  return self;
}

- (void)applicationWillFinishLaunching:(NSNotification*)notification {
  BWK_DLOG("%s [Line %d] app will finish launching");
  NSString* name = [[NSBundle mainBundle] objectForInfoDictionaryKey:@"CFBundleDisplayName"];
  if (name.length == 0) name = [[NSBundle mainBundle] infoDictionary][@"CFBundleName"];
  if (name.length == 0) name = [[NSProcessInfo processInfo] processName];
  std::string appName = name.UTF8String;

  NSMenu* mainMenu = [NSApp mainMenu] ?: [[[NSMenu alloc] init] autorelease];
  if (mainMenu.numberOfItems > 0) [mainMenu removeItemAtIndex:0];
  NSMenuItem* appItem = [mainMenu addItemWithTitle:name action:nil keyEquivalent:@""];
  NSMenu* appMenu = [[[NSMenu alloc] init] autorelease];
  [appItem setSubmenu:appMenu];

  NSMenuItem* services = [appMenu addItemWithTitle:message("MacMenuServices") action:nil keyEquivalent:@""];
  NSMenu* servicesMenu = [[[NSMenu alloc] init] autorelease];
  [services setSubmenu:servicesMenu];
  [NSApp setServicesMenu:servicesMenu];
  [appMenu addItem:[NSMenuItem separatorItem]];
  [appMenu addItemWithTitle:message("MacMenuHide", appName) action:@selector(hide:) keyEquivalent:@"h"];
  NSMenuItem* hideOthers = [appMenu addItemWithTitle:message("MacMenuHideOthers") action:@selector(hideOtherApplications:) keyEquivalent:@"h"];
  [hideOthers setKeyEquivalentModifierMask:NSEventModifierFlagCommand | NSEventModifierFlagOption];
  [appMenu addItemWithTitle:message("MacMenuShowAll") action:@selector(unhideAllApplications:) keyEquivalent:@""];
  [appMenu addItem:[NSMenuItem separatorItem]];
  [appMenu addItemWithTitle:message("MacMenuQuit", appName) action:@selector(terminate:) keyEquivalent:@"q"];
  for (NSMenuItem* item in appMenu.itemArray) [item setTarget:NSApp];
  [NSApp setMainMenu:mainMenu];

  id initialProgress = [[NSBundle mainBundle] infoDictionary][@"bwk.initialProgress"];
  if (initialProgress && ![initialProgress boolValue]) {
    BWK_DLOG("%s [Line %d] hiding progress window");
    [self.window close];
  }
}

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender {
  const char* library = nullptr;
  const char* suffix = "libbwkinst.dylib";
  for (uint32_t i = 0; i < _dyld_image_count() && !library; ++i) {
    const char* image = _dyld_get_image_name(i);
    size_t n = image ? std::strlen(image) : 0;
    if (n >= std::strlen(suffix) && std::strcmp(image + n - std::strlen(suffix), suffix) == 0) library = image;
  }
  BWK_DLOG("%s [Line %d] lib name %s", library);
  void* handle = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
  if (handle) {
    void* handler = dlsym(handle, "callBrackwoodQuitHandler");
    BWK_DLOG("%s [Line %d] handler %p", static_cast<const void*>(handler));
    if (handler && reinterpret_cast<bool (*)()>(handler)()) {
      BWK_DLOG("%s [Line %d] terminate later");
      return NSTerminateLater;
    }
  }
  BWK_DLOG("%s [Line %d] terminate now");
  return NSTerminateNow;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  BWK_DLOG("%s [Line %d] app finished launching");
  NSBundle* bundle = [NSBundle mainBundle];
  [self.window setTitle:[bundle localizedStringForKey:@"WizardCaption" value:@"" table:nil]];
  NSString* format = [bundle localizedStringForKey:@"PrepareInstaller" value:@"" table:nil];
  NSString* name = [bundle infoDictionary][@"CFBundleName"];
  [self.label setStringValue:ns(bwk::format(format.UTF8String, name ? std::optional<std::string>(name.UTF8String) : std::nullopt))];
  [self.cancelButton setTitle:[bundle localizedStringForKey:@"ButtonCancel" value:@"" table:nil]];
  NSURL* icon = [bundle URLForResource:@"app" withExtension:@"icns"];
  if (icon) [self.iconView setImage:[[[NSImage alloc] initWithContentsOfURL:icon] autorelease]];
  [NSApp activateIgnoringOtherApps:YES];
  [self performSelectorInBackground:@selector(worker:) withObject:nil];
}

- (void)worker:(id)sender {
  _delegate->worker();
}

- (IBAction)cancel:(id)sender {
  _delegate->cancel();
  [self.cancelButton setEnabled:NO];
}

@end

namespace bwk {

void CocoaProgressWindow::setProgress(double value) {
  BWKDelegateObject* owner = owner_;
  [[NSOperationQueue mainQueue] addOperationWithBlock:^{ [owner.progressBar setDoubleValue:value]; }];
}

void CocoaProgressWindow::beginLaunch() {
  BWKDelegateObject* owner = owner_;
  [[NSOperationQueue mainQueue] addOperationWithBlock:^{
    [owner.progressBar setIndeterminate:YES];
    [owner.progressBar startAnimation:owner];
    [owner.cancelButton setEnabled:NO];
  }];
}

void CocoaProgressWindow::closeAfter(double seconds) {
  BWKDelegateObject* owner = owner_;
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC)), dispatch_get_main_queue(),
                 ^{ [[owner window] close]; });
}

std::optional<int> NSApplicationMain(int argc, char** argv) {
  return ::NSApplicationMain(argc, const_cast<const char**>(argv));
}

}  // namespace bwk
