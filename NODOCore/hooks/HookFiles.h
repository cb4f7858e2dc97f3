#pragma once

#include <filesystem>

/// What hook files need of the folders around them: somebody's home stays that person's, also where
/// root installs, and is left without the folders that were made for hooks.
namespace nodo {

/// Makes the folder at `path`, with those above it, unless it is there. What root makes belongs to
/// the owner of the folder around it. Throws std::system_error, with the path in its text.
void makeFolderOfOwner(const std::filesystem::path& path);

/// Gives what root has just made at `path` to the owner of the folder around it, who could have
/// made it there as well; so nobody gains by a planted link, which is not followed. Does nothing
/// for other users. Throws std::system_error, with the path in its text.
void giveToOwnerOfFolder(const std::filesystem::path& path);

/// Removes the folder at `path` and those above it, as long as they are empty, no links and below
/// `top`. One that cannot be removed stays: it does no harm.
void removeEmptyFolders(std::filesystem::path path, const std::filesystem::path& top);

}  // namespace nodo
