#include <runtime/shell/lingering.h>

void Lingering::destroy() { delete this; }
