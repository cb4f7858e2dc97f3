#include <tests/macos/ProtocolMethods.h>

#include <cstdlib>

#import <Foundation/Foundation.h>
#import <platform/macos/NODOHelperXPCProtocol.h>

#include <objc/runtime.h>

/// The runtime knows a protocol only where a class adopts it. Abstract, and never used.
@interface WireProtocolAdopter : NSObject <NODOHelperXPCProtocol>
@end

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wprotocol"
@implementation WireProtocolAdopter
@end
#pragma clang diagnostic pop

namespace nodo::test {
namespace {

std::vector<MethodTypes> methods(BOOL required, BOOL ofInstances) {
  std::vector<MethodTypes> found;
  unsigned int count = 0;
  auto* list = protocol_copyMethodDescriptionList(@protocol(NODOHelperXPCProtocol), required,
                                                  ofInstances, &count);
  for (unsigned int index = 0; index < count; ++index) {
    found.emplace_back(sel_getName(list[index].name), list[index].types);
  }
  std::free(list);
  return found;
}

}  // namespace

std::vector<MethodTypes> wireProtocolMethods() { return methods(YES, YES); }

std::vector<std::string> wireProtocolExtras() {
  std::vector<std::string> found;
  for (const auto& [required, ofInstances] :
       {std::pair{NO, YES}, std::pair{YES, NO}, std::pair{NO, NO}}) {
    for (const auto& [name, types] : methods(required, ofInstances)) {
      found.push_back(name);
    }
  }
  unsigned int count = 0;
  auto** adopted = protocol_copyProtocolList(@protocol(NODOHelperXPCProtocol), &count);
  for (unsigned int index = 0; index < count; ++index) {
    found.emplace_back(protocol_getName(adopted[index]));
  }
  std::free(adopted);
  return found;
}

bool exportedObjectAnswers(const std::vector<MethodTypes>& methods) {
  const Class exported = NSClassFromString(@"NODOHelperExportedObject");
  for (const auto& [name, types] : methods) {
    const Method method = class_getInstanceMethod(exported, sel_registerName(name.c_str()));
    if (method == nullptr || types != method_getTypeEncoding(method)) {
      return false;
    }
  }
  return [exported conformsToProtocol:@protocol(NODOHelperXPCProtocol)];
}

}  // namespace nodo::test
