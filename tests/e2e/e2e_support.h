#pragma once
// Bundles started through the real launcher executable.

#include "test_support.h"

namespace bwk::test {

// No debug log, and sanitizer settings that let a real JVM run in an instrumented launcher.
inline std::vector<std::string> launcherEnvironment(std::vector<std::string> extra = {}) {
  std::vector<std::string> env = {
      "BRACKWOOD_LOG", "DISPLAY", "WAYLAND_DISPLAY",
      "ASAN_OPTIONS=handle_segv=0:allow_user_segv_handler=1:detect_leaks=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0"};
  env.insert(env.end(), extra.begin(), extra.end());
  return env;
}

// Runs <app>/Contents/MacOS/<its name> with `args`; later `env` entries replace earlier ones.
inline RunResult startApp(const std::string& app, const std::vector<std::string>& args = {},
                          const std::vector<std::string>& env = {}, const std::string& cwd = "") {
  std::string name = app.substr(app.rfind('/') + 1);
  std::vector<std::string> argv{app + "/Contents/MacOS/" + name.substr(0, name.rfind(".app"))};
  argv.insert(argv.end(), args.begin(), args.end());
  return run(argv, launcherEnvironment(env), cwd);
}

// The argument vector the fake runtime library recorded for one launch.
struct Recorded {
  std::string fullVersion, dotVersion;
  std::string flags;     // program and launcher name, then JLI_Launch's and the argument-file functions' numbers
  std::string variable;  // FAKE_JLI_SHOW_VARIABLE's name=value
  std::vector<std::string> argv;
};
// Its lines: "fullversion=", "dotversion=", "flags=", perhaps "variable=", the vector, "--".
inline Recorded readRecord(const std::string& file) {
  std::vector<std::string> lines = text::split(readFile(file), "\n");
  auto end = std::find(lines.begin(), lines.end(), "--");
  if (end - lines.begin() < 3) return {};
  auto argv = lines.begin() + 3;
  std::string variable = argv != end && text::startsWith(*argv, "variable=") ? (argv++)->substr(9) : "";
  return {lines[0].substr(12), lines[1].substr(11), lines[2].substr(6), variable, {argv, end}};
}

inline const std::string kJdk17 = "/usr/lib/jvm/java-17-openjdk-amd64";

// A jlink image of the demo program, bundle-shaped, made once per build tree (of tests racing, the first moves in).
inline std::string jlinkStage() {
  std::string stage = std::string(BWK_BINARY_DIR) + "/test-cache/jlink-17";
  if (!fs::exists(stage + "/Contents/Home/lib/libjli.so")) {
    std::string fresh = stage + ".new-" + std::to_string(getpid());
    shell(
        "rm -rf " + fresh + " && mkdir -p " + fresh + "/Contents && " + kJdk17 +
        "/bin/jlink --add-modules java.base,java.management --strip-debug --no-header-files --no-man-pages --output " +
        fresh + "/Contents/Home && (mv -T " + fresh + " " + stage + " 2>/dev/null || rm -rf " + fresh + ")");
  }
  return stage;
}

inline std::string helloJar() {
  return std::string(BWK_BINARY_DIR) + "/demo/Hello.app/Contents/Resources/app/lib/hello.jar";
}

// <parent>/<name>.app running the demo program from its lib/ with `runtime`; keys given win.
inline std::string helloApp(const std::string& parent, const std::string& name, const std::string& runtime,
                            PlistDict javaVM = {}, PlistDict info = {}) {
  javaVM.insert({{"MainClass", "Hello"},
                 {"ClassPath", "${launcher:sys.appRootDir}/lib/*"},
                 {"SearchSequence", stringArray({"R" + runtime})}});
  info.insert({{"CFBundleName", name}, {"JavaVM", PlistValue(javaVM)}});
  std::string app = makeBundle(parent, name, PlistValue(info));
  shell("mkdir -p " + app + "/Contents/Resources/app/lib && cp " + helloJar() + " " + app +
        "/Contents/Resources/app/lib/");
  return app;
}

}  // namespace bwk::test
