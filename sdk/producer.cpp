#include "ravlo/producer.h"

const char* ravlo_producer_version(void) {
    return "1.0.0";
}
