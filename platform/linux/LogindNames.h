#pragma once

/// What logind is called on the system bus (org.freedesktop.login1(5)).
namespace nodo::logind {

inline constexpr char service[] = "org.freedesktop.login1";
inline constexpr char path[] = "/org/freedesktop/login1";
inline constexpr char managerInterface[] = "org.freedesktop.login1.Manager";

}  // namespace nodo::logind
