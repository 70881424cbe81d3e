#include "platform/CmEvent.h"

ICmEvent::~ICmEvent() = default;

void ICmEvent::OnDestorySelf() { delete this; }
