#pragma once
// Symbol visibility for the platform stand-in libraries (built with hidden visibility).
#define TARN_PLATFORM_API __attribute__((visibility("default")))
