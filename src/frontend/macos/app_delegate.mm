// Application mode on macOS: the application object's main loop, the delegate (its outlets
// are the progress window's controls), the application menu, and the quit hook.
//
// Memory: compiled with ARC. The outlets do not retain (the window belongs to the interface
// file, or to the delegate when the delegate builds it); the window is kept alive when it
// is closed, so that a later close or update finds it. The delegate, the worker and the
// progress object live until the process ends: the worker ends it with exit().
// Threads: every AppKit call runs on the main thread; the worker thread reaches the window
// only through blocks queued to the main queue.
#import <Cocoa/Cocoa.h>
#include <dlfcn.h>
#include <mach-o/dyld.h>

#include <cstring>

#include "base/bundle.h"
#include "base/format.h"
#include "base/log.h"
#include "frontend/application.h"
#include "install/app_delegate.h"
#include "launcher/messages.h"

// The interface files of the packaging system name the delegate's class "AppDelegate"; in
// namespace bwk that name is the worker's C++ class, so the Objective-C one is reached
// through this alias there.
@class AppDelegate;
typedef AppDelegate BWKAppDelegate;

namespace bwk {

// The worker's window changes, queued to the main thread.
class CocoaProgressWindow final : public ProgressWindow {
 public:
  explicit CocoaProgressWindow(BWKAppDelegate* owner) : owner_(owner) {}
  void setProgress(double value) override;
  void beginLaunch() override;
  void closeAfter(double seconds) override;

 private:
  __unsafe_unretained BWKAppDelegate* owner_;  // lives as long as the process
};

namespace {

// The worker of this start. The interface file makes the delegate with -init, which takes
// no arguments, so runApplication leaves it here first.
AppDelegate* g_worker = nullptr;

// Texts shown in the window and menu. They come from strings files, which are read as UTF-8;
// anything else shows as an empty text rather than raising on a nil string.
NSString* ns(const std::string& s) {
  NSString* text = [NSString stringWithUTF8String:s.c_str()];
  return text != nil ? text : @"";
}

// A value of the Info dictionary that counts only when it is a string: a number or a date
// under a name key would raise on the first string message sent to it.
NSString* stringValue(id value) { return [value isKindOfClass:[NSString class]] ? (NSString*)value : nil; }

NSString* message(const char* key, const std::optional<std::string>& info = std::nullopt) {
  return ns(getMessage(g_worker->bundle(), key, info).value_or(""));
}

}  // namespace
}  // namespace bwk

@interface AppDelegate : NSObject <NSApplicationDelegate> {
  bwk::AppDelegate* _delegate;
  bwk::CocoaProgressWindow* _progress;
  NSWindow* _ownWindow;  // the window built here when the bundle has no interface file
  BOOL _windowHidden;    // "bwk.initialProgress" is false
}
@property(unsafe_unretained) IBOutlet NSImageView* iconView;
@property(unsafe_unretained) IBOutlet NSWindow* window;
@property(unsafe_unretained) IBOutlet NSProgressIndicator* progressBar;
@property(unsafe_unretained) IBOutlet NSButton* cancelButton;
@property(unsafe_unretained) IBOutlet NSTextField* label;
@property(unsafe_unretained) IBOutlet NSTextField* progressLabel;
- (IBAction)cancel:(id)sender;
@end

@implementation AppDelegate

- (instancetype)init {
  if ((self = [super init])) {
    _delegate = bwk::g_worker;
    _progress = new bwk::CocoaProgressWindow(self);
    _delegate->window = _progress;
  }
  return self;
}

// The progress window of a bundle without an interface file: icon, label, bar and Cancel.
- (void)buildWindow {
  _ownWindow = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 440, 120)
                                           styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                                             backing:NSBackingStoreBuffered
                                               defer:YES];
  NSView* content = _ownWindow.contentView;
  NSImageView* icon = [[NSImageView alloc] initWithFrame:NSMakeRect(16, 40, 64, 64)];
  NSTextField* text = [NSTextField labelWithString:@""];
  text.frame = NSMakeRect(96, 80, 328, 20);
  NSProgressIndicator* bar = [[NSProgressIndicator alloc] initWithFrame:NSMakeRect(96, 52, 328, 20)];
  bar.indeterminate = NO;
  bar.minValue = 0;
  bar.maxValue = 100;
  NSButton* button = [NSButton buttonWithTitle:@"" target:self action:@selector(cancel:)];
  button.frame = NSMakeRect(324, 10, 100, 32);
  for (NSView* view in @[ icon, text, bar, button ]) [content addSubview:view];
  [_ownWindow center];
  self.window = _ownWindow;
  self.iconView = icon;
  self.label = text;
  self.progressBar = bar;
  self.cancelButton = button;
}

- (void)applicationWillFinishLaunching:(NSNotification*)notification {
  BWK_DLOG("%s [Line %d] app will finish launching");
  if (!self.window) [self buildWindow];
  // An interface file's window is released when closed unless told otherwise; the outlets
  // would then point at nothing.
  self.window.releasedWhenClosed = NO;

  NSString* name = bwk::stringValue([[NSBundle mainBundle] objectForInfoDictionaryKey:@"CFBundleDisplayName"]);
  if (name.length == 0) name = bwk::stringValue([[NSBundle mainBundle] infoDictionary][@"CFBundleName"]);
  if (name.length == 0) name = [[NSProcessInfo processInfo] processName];
  std::string appName = name.UTF8String;

  NSMenu* mainMenu = [NSApp mainMenu];
  if (mainMenu == nil) mainMenu = [[NSMenu alloc] init];
  if (mainMenu.numberOfItems > 0) [mainMenu removeItemAtIndex:0];
  // Appended, as the packaging system's launchers have always done.
  NSMenuItem* appItem = [mainMenu addItemWithTitle:name action:nil keyEquivalent:@""];
  NSMenu* appMenu = [[NSMenu alloc] init];
  [appItem setSubmenu:appMenu];

  NSMenuItem* services = [appMenu addItemWithTitle:bwk::message("MacMenuServices") action:nil keyEquivalent:@""];
  NSMenu* servicesMenu = [[NSMenu alloc] init];
  [services setSubmenu:servicesMenu];
  [NSApp setServicesMenu:servicesMenu];
  [appMenu addItem:[NSMenuItem separatorItem]];
  [appMenu addItemWithTitle:bwk::message("MacMenuHide", appName) action:@selector(hide:) keyEquivalent:@"h"];
  NSMenuItem* hideOthers = [appMenu addItemWithTitle:bwk::message("MacMenuHideOthers")
                                              action:@selector(hideOtherApplications:)
                                       keyEquivalent:@"h"];
  [hideOthers setKeyEquivalentModifierMask:NSEventModifierFlagCommand | NSEventModifierFlagOption];
  [appMenu addItemWithTitle:bwk::message("MacMenuShowAll") action:@selector(unhideAllApplications:) keyEquivalent:@""];
  [appMenu addItem:[NSMenuItem separatorItem]];
  [appMenu addItemWithTitle:bwk::message("MacMenuQuit", appName) action:@selector(terminate:) keyEquivalent:@"q"];
  for (NSMenuItem* item in appMenu.itemArray) [item setTarget:NSApp];
  [NSApp setMainMenu:mainMenu];

  // Nothing to show ("bwk.initialProgress" false, which the worker logs, or a runtime from
  // the cache): the window is closed before it is ever shown.
  if (!_delegate->showsWindow()) {
    _windowHidden = YES;
    [self.window close];
  }
}

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender {
  const char* library = nullptr;
  const char* suffix = "libbwkinst.dylib";
  const size_t suffixLength = std::strlen(suffix);
  for (uint32_t i = 0; i < _dyld_image_count() && !library; ++i) {
    const char* image = _dyld_get_image_name(i);
    size_t n = image ? std::strlen(image) : 0;
    if (n >= suffixLength && std::strcmp(image + n - suffixLength, suffix) == 0) library = image;
  }
  BWK_DLOG("%s [Line %d] lib name %s", library);
  // RTLD_NOLOAD: only a library the Java side loaded itself counts; null finds nothing.
  void* handle = library ? dlopen(library, RTLD_LAZY | RTLD_NOLOAD) : nullptr;
  if (handle) {
    void* handler = dlsym(handle, "callBrackwoodQuitHandler");
    BWK_DLOG("%s [Line %d] handler %p", static_cast<const void*>(handler));
    bool later = handler && reinterpret_cast<bool (*)()>(handler)();
    dlclose(handle);  // drops only the reference taken above
    if (later) {
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
  NSString* name = bwk::stringValue([bundle infoDictionary][@"CFBundleName"]);
  [self.label setStringValue:bwk::ns(bwk::format(format.UTF8String,
                                                 name ? std::optional<std::string>(name.UTF8String) : std::nullopt))];
  [self.cancelButton setTitle:[bundle localizedStringForKey:@"ButtonCancel" value:@"" table:nil]];
  NSURL* icon = [bundle URLForResource:@"app" withExtension:@"icns"];
  if (icon) [self.iconView setImage:[[NSImage alloc] initWithContentsOfURL:icon]];
  if (!_windowHidden) [self.window makeKeyAndOrderFront:nil];
  if (@available(macOS 14.0, *)) {
    [NSApp activate];
  } else {
    [NSApp activateIgnoringOtherApps:YES];
  }
  [NSThread detachNewThreadSelector:@selector(worker:) toTarget:self withObject:nil];
}

- (void)worker:(id)sender {
  // A thread of its own has no autorelease pool unless it makes one.
  @autoreleasepool {
    _delegate->worker();
  }
}

- (IBAction)cancel:(id)sender {
  _delegate->cancel();
  [self.cancelButton setEnabled:NO];
}

@end

namespace bwk {

void CocoaProgressWindow::setProgress(double value) {
  BWKAppDelegate* owner = owner_;
  [[NSOperationQueue mainQueue] addOperationWithBlock:^{
    [owner.progressBar setDoubleValue:value];
  }];
}

void CocoaProgressWindow::beginLaunch() {
  BWKAppDelegate* owner = owner_;
  [[NSOperationQueue mainQueue] addOperationWithBlock:^{
    [owner.progressBar setIndeterminate:YES];
    [owner.progressBar startAnimation:owner];
    [owner.cancelButton setEnabled:NO];
  }];
}

void CocoaProgressWindow::closeAfter(double seconds) {
  BWKAppDelegate* owner = owner_;
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC)),
                 dispatch_get_main_queue(), ^{
                   [[owner window] close];
                 });
}

std::optional<int> runApplication(AppDelegate& worker) {
  g_worker = &worker;
  // With an interface file, the application object makes the delegate from it; without
  // one, the delegate is made here and builds its window itself.
  if (worker.bundle().infoDictionary().string("NSMainNibFile")) {
    std::vector<const char*> argv;
    for (const std::string& argument : worker.arguments()) argv.push_back(argument.c_str());
    return NSApplicationMain(static_cast<int>(argv.size()), argv.data());
  }
  @autoreleasepool {
    NSApplication* application = [NSApplication sharedApplication];
    // Kept for the life of the process: the application holds its delegate weakly.
    static BWKAppDelegate* delegate = [[BWKAppDelegate alloc] init];
    application.delegate = delegate;
    [application setActivationPolicy:NSApplicationActivationPolicyRegular];
    [application run];
  }
  return 0;
}

}  // namespace bwk
