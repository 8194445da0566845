// A plug-in whose registration throws.
#include <stdexcept>

#include "platform/flutter_ostrel/flutter_ostrel.h"

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext*) {
  throw std::runtime_error("on purpose");
}
