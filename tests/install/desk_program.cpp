// Includes every installed header, and delivers a message with the desk's embedder as a library.
#include <cstdio>

#include <QCoreApplication>

#include "all_headers.h"

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  desk::Embedder embedder{desk::Description()};
  auto* registrar =
      cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder.GetContext());
  registrar->GetMessenger()->SetMessageHandler(
      "c",
      [](const uint8_t* data, size_t size, const cw::BinaryReply& reply) { reply(data, size); });
  const uint8_t byte = 1;
  embedder.Deliver("c", &byte, 1, [](const uint8_t*, size_t size) {
    if (size == 1) std::puts("delivered");
  });
}
