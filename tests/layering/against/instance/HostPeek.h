// A core header that includes the embedded object manager: the layering check must name it.
#include "host/Host.h"
