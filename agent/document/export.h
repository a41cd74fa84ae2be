// What programs that link libenrolix-client may call.
#pragma once

#define ENROLIX_EXPORT __attribute__((visibility("default")))
