#pragma once

/// Told of the bytes done and the bytes in all, with what the caller gave.
extern "C" typedef void (*ChecksumProgress)(unsigned long long done, unsigned long long size, void* context);
