// The tables' entries, whole. Their contracts stand in flutter_ostrel.h.
#pragma once

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

extern const FlutterOstrelApplicationProcTable kApplicationTable;
extern const FlutterOstrelViewProcTable kViewTable;
extern const FlutterOstrelTextureProcTable kTextureTable;
extern const FlutterOstrelMessengerProcTable kMessengerTable;

}  // namespace desk
