#include "platform/CmReference.h"

template <>
void CCmReferenceControlT<CCmMutexThread>::OnReferenceDestory() {
    delete this;
}
