// A program that ends with the code 42, in the shape that its first argument names, while a plug-in
// uses the service. The others name the directory of libtavo.so, and the plug-in.
#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include <QCoreApplication>

int main(int count, char** arguments) {
  const std::string shape = arguments[1];
  const bool outlives = shape == "ApplicationOutlivesAll";
  static QCoreApplication* application = nullptr;
  const auto end = [] { delete application; };
  if (shape != "NoApplication") application = new QCoreApplication(count, arguments);
  if (outlives) std::atexit(end);
  void* const plugin = dlopen(arguments[3], RTLD_NOW);
  using Run = void (*)(const char* shape, const char* folder);
  reinterpret_cast<Run>(dlsym(plugin, "Run"))(arguments[1], arguments[2]);
  if (shape == "PluginUnloaded") dlclose(plugin);
  if (!outlives) end();
  return 42;
}
