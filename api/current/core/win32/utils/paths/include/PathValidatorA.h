#pragma once

#include "win32/paths/include/IPathValidatorA.h"

/// PathValidatorW for UTF-8.
class PathValidatorA final : public IPathValidatorA
{
public:
    static PathValidatorA& getInstance() noexcept;

    long validate(char* path, unsigned long capacity, unsigned long* needed) override;

private:
    PathValidatorA() noexcept = default;
};
