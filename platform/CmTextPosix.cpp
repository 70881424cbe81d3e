#include "platform/CmText.h"

bool CmUtf8ToLocal(CCmString& /*strText*/) { return true; }
