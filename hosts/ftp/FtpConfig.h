// FtpConfig: one set of settings in use.
#pragma once

#include "hosts/ftp/FtpCertificate.h"
#include "hosts/ftp/FtpRefusedNames.h"
#include "hosts/ftp/FtpSettings.h"
#include "hosts/ftp/FtpUsers.h"

namespace kqlib {

/// The settings that a session runs with, and what is made from them once. Never changed: new settings are a new
/// object, which sessions made from then on share; those that run keep theirs.
struct FtpConfig
{
    explicit FtpConfig(const FtpSettings& from)
        : settings(from)
        , certificate(from)
        , users(from.GetUsers())
        , refusedNames(from.GetRefusedNames())
    {
    }

    const FtpSettings settings;
    const FtpCertificate certificate;
    const FtpUsers users;
    const FtpRefusedNames refusedNames;
};

} // namespace kqlib
