#include "KVFobLink/KVLinuxPlatform.h"

#include "platform/linux/event_queue.h"

std::shared_ptr<KVLinuxEventQueue> KVLinuxPlatform::makeEventQueue() {
  return std::make_shared<kv::EventQueue>();
}
