// The complete tables. flutter_ostrel.h has the contracts of their entries.
#pragma once

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

extern const FlutterOstrelApplicationProcTable kApplicationTable;
extern const FlutterOstrelViewProcTable kViewTable;
extern const FlutterOstrelTextureProcTable kTextureTable;
extern const FlutterOstrelMessengerProcTable kMessengerTable;

}  // namespace desk
