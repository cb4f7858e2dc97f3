#pragma once

#include <filesystem>

/// What hook files need of the folders around them: somebody's home stays that person's, also where
/// root installs, and is left without the folders that were made for hooks.
namespace nodo {

/// What lies at `path`, or where a link there leads. Throws std::system_error, with the path in its
/// text, when that cannot be told, which is another thing than that there is nothing.
std::filesystem::file_status statusOf(const std::filesystem::path& path);

/// The same of a link itself.
std::filesystem::file_status linkStatusOf(const std::filesystem::path& path);

/// Makes the folder at `path`, with those above it, unless it is there. What root makes belongs to
/// the owner of the folder around it. Throws std::system_error, with the path in its text.
void makeFolderOfOwner(const std::filesystem::path& path);

/// Gives what root has just made at `path` to the owner of the folder around it, who could have
/// made it there as well; so nobody gains by a planted link, which is not followed. Does nothing
/// for other users. Throws std::system_error, with the path in its text, and has removed it then.
void giveToOwnerOfFolder(const std::filesystem::path& path);

/// The same for what a link at `path` leads to, if anything is there.
void giveTargetToOwnerOfFolder(const std::filesystem::path& path);

/// Removes the folder at `path` and those above it, as long as they are empty, no links and below
/// `top`. One that cannot be removed stays: it does no harm.
void removeEmptyFolders(std::filesystem::path path, const std::filesystem::path& top);

}  // namespace nodo
