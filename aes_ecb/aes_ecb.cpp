#include "aes_ecb/aes_ecb.h"
