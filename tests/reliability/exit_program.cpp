// A program that ends with the code 42, in the shape that its first argument names, while a plug-in
// uses the service. The others name the directory of libtavo.so, and the plug-in.
#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include <QCoreApplication>

int main(int count, char** arguments) {
  const std::string shape = arguments[1];
  static QCoreApplication* application = nullptr;
  const auto end_application = [] { delete application; };
  const bool application_outlives_all = shape == "ApplicationOutlivesAll";
  if (shape != "NoApplication") application = new QCoreApplication(count, arguments);
  if (application_outlives_all) std::atexit(end_application);
  void* const plugin = dlopen(arguments[3], RTLD_NOW);
  const auto run = reinterpret_cast<void (*)(const char*, const char*)>(dlsym(plugin, "Run"));
  run(arguments[1], arguments[2]);
  if (shape == "PluginUnloaded") dlclose(plugin);
  if (!application_outlives_all) end_application();
  return 42;
}
