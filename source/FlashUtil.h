#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "IFlashProgrammerUtility2.h"

// Parsing of the structured flash-property values, and conversions between bytes, words and text. Failures
// are std::runtime_error unless said otherwise.
class FlashUtil {
 public:
  // Code, and two text columns as they stand in the property.
  using RevisionRow = std::tuple<int, std::string, std::string>;
  // Four numbers as they stand in the property; -1 for a star.
  using SizeRow = std::tuple<long, long, long, long>;

  // `hostUtility` is not owned and outlives this object.
  explicit FlashUtil(IFlashProgrammerUtility2* hostUtility) : utility(hostUtility) {}

  [[nodiscard]] IFlashProgrammerUtility2* GetFlashProgrammerUtility() const;

  // The table readers append; rows before a malformed one stay appended.
  // "code:text:text:code:text:text...", codes in decimal or with a 0x prefix.
  void ReadRevisionsTranslationFromXml(std::vector<RevisionRow>& rows) const;
  // "number:number:number:number:..."; an empty entry is a std::out_of_range.
  void ReadSizeTranslationFromXml(const std::string& property, std::vector<SizeRow>& rows) const;
  // "address:length", both hexadecimal. Another number of entries is reported to the user; then the first two
  // are used, and std::out_of_range is thrown when there are fewer.
  void ReadAddressLengthPropertyFromXml(std::string property, std::uint32_t& address,
                                        std::uint32_t& length) const;

  // Appends the pieces to `pieces`. An empty text gives none; a delimiter at the end adds no empty piece.
  static std::vector<std::string>& Split(const std::string& text, char delimiter,
                                         std::vector<std::string>& pieces);
  // "major.minor" in decimal; a text of another number of parts leaves both outputs alone.
  static void ConvertRevisionStringToMajorMinor(std::string text, std::uint32_t& major, std::uint32_t& minor);
  // At least two digits a byte; base 10 or 16. An empty vector gives an empty text whatever the base.
  static std::string ConvertByteVectorToString(const std::vector<std::uint8_t>& bytes, char separator,
                                               int base);
  static void ReverseByteVector(std::vector<std::uint8_t>& bytes);
  static void ReverseByteArray(std::uint8_t* bytes, std::uint32_t length);
  // Pieces of at most two hexadecimal digits; an empty piece is 0.
  static void ConvertStringToByteVector(std::string text, std::vector<std::uint8_t>& bytes, char delimiter);
  static std::uint32_t ConvertByteArrayToWord(const std::uint8_t* bytes, bool littleEndian);
  static std::vector<std::uint8_t> ConvertWordToByteVector(std::uint32_t word, bool littleEndian);

 private:
  IFlashProgrammerUtility2* utility;
};

// Each pair of characters, from the left, as one base-16 byte; a last lone character is read alone. Nothing
// is validated: a pair is read as far as it is hexadecimal.
std::vector<std::uint8_t> hexStringToBytes(const std::string& text);
