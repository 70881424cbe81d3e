#include "core/FileOpSink.h"

IFileOpStatus::~IFileOpStatus() = default;
