#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"

/// What a creator leaves in the management block about itself and its layout, and what becomes of it
/// in an attacher. @p bufferSize is in bytes.
namespace LayoutNote {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// Before anybody can see a set of the region.
void write(PingPongBufferHandler::ManagementBuffer &management, const BaseClassSharedPointer &root,
           quint32 bufferSize);
/// Where it is said that this process has another layout. A mapping that cannot be written takes no note.
enum class Noting { InRegion, Nowhere };

/// A warning if the creator of the region @p key had another layout than @p root, and a note in the region
/// that this process has. Whatever it had, the slots lie inside the buffer, so that the process may go on. Where
/// the creator has not said its layout yet the note tells that nobody has compared.
void compare(PingPongBufferHandler::ManagementBuffer &management,
             const BaseClassSharedPointer &root, quint32 bufferSize, const QString &key,
             Noting noting);

/// The same for a description with a single buffer, whose leaves lie elsewhere in such a region, whatever
/// their offsets are.
void compareSingle(PingPongBufferHandler::ManagementBuffer &management,
                   const BaseClassSharedPointer &root, quint32 bufferSize, const QString &key,
                   Noting noting);

} // namespace LayoutNote
