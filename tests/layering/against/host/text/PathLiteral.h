// A text-component header that reaches up into the broker: the layering check must name it.
#include "host/broker/Broker.h"
