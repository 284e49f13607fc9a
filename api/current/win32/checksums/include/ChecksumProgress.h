#pragma once

/// Receives the bytes done, the bytes in all and the caller's context.
extern "C" typedef void (*ChecksumProgress)(unsigned long long done, unsigned long long size, void* context);
