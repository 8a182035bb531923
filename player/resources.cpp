#include "player/resources.h"

#include <QtGlobal>

// Q_INIT_RESOURCE must be used outside any namespace.
static void init_quill_resources() { Q_INIT_RESOURCE(quill); }

namespace quill {

void init_resources() { init_quill_resources(); }

}  // namespace quill
