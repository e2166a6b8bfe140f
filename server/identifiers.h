// The identifiers of the component and its classes.
#pragma once

#include <array>
#include <cstdint>

#include "automation/text.h"

namespace TORVINFTPAppDataCom {

// A globally unique identifier with the memory layout of COM.
struct Guid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::array<std::uint8_t, 8> data4{};

  friend bool operator==(const Guid&, const Guid&) = default;
};

inline constexpr Guid kTypeLibraryId{
    0x28E4CCBA, 0x0EA5, 0x44F0, {0xBA, 0x88, 0x57, 0x92, 0x7E, 0x02, 0xC3, 0x53}};

inline constexpr Guid kFTPCollectionClassId{
    0x739938EB, 0xE6DC, 0x4483, {0xA5, 0x09, 0xA9, 0x37, 0xEC, 0xAB, 0x1B, 0x0D}};
inline constexpr Guid kFTPCollectionInterfaceId{
    0x5A0B687D, 0x0960, 0x4B70, {0xBC, 0xA2, 0x8F, 0xBC, 0xD2, 0x53, 0x12, 0x34}};

inline constexpr Guid kAppPoolCollectionClassId{
    0x28034FA8, 0xA750, 0x4203, {0xB5, 0xFF, 0xC7, 0x17, 0xE9, 0x2C, 0x26, 0xDC}};
inline constexpr Guid kAppPoolCollectionInterfaceId{
    0x726BBF8A, 0x8AC0, 0x4A48, {0xA9, 0x7D, 0x5E, 0xF4, 0xCD, 0xCB, 0x89, 0x11}};

// Defined by COM: IUnknown, IClassFactory, IDispatch.
inline constexpr Guid kUnknownInterfaceId{
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr Guid kClassFactoryInterfaceId{
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr Guid kDispatchInterfaceId{
    0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

inline constexpr automation::TextView kFTPCollectionProgrammaticId = u"TORVINFTPAppDataCom.FTPCollection";
inline constexpr automation::TextView kAppPoolCollectionProgrammaticId =
    u"TORVINFTPAppDataCom.AppPoolCollection";

}  // namespace TORVINFTPAppDataCom
