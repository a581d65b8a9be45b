#pragma once

#include <string>
#include <string_view>

namespace orvid {

// Inverse text normalisation: spoken forms of numbers written the way people
// write them ("twenty three point five percent" -> "23.5%", "二零二四年" -> "2024年").
// Stateless and thread-safe. The rules are deliberately conservative: a phrase
// that is not clearly a number is left as spoken.
//
// English (number words matched regardless of letter case):
//  - Cardinals: "one hundred and five" -> "105", "twenty-three" -> "23",
//    "two thousand twenty four" -> "2024"; values from 10 000 are grouped with
//    commas ("12,500"); a round number of millions, billions or trillions keeps
//    its scale word ("five million" -> "5 million").
//  - A single word below ten ("one", "three", "first") stays a word unless a
//    percent sign, a currency or a time follows; so does "zero" on its own
//    ("one of them", "two cats" and "the first time" stay as they are).
//  - Ordinals: "twenty first" -> "21st", "one hundredth" -> "100th". "second"
//    after a tens word counts as an ordinal only at the end of a phrase or after
//    "the" or a month name ("the twenty second" -> "the 22nd", but "thirty
//    second break" -> "30 second break").
//  - Decimals: "<number> point <digits>" -> "23.5", "zero point five" -> "0.5";
//    "two point five million" -> "2.5 million".
//  - Percentages: "<number> percent" or "per cent" -> "5%".
//  - Currency: "<number> dollars" -> "$20", "euros" -> "€", "yen" -> "¥";
//    "twenty dollars and fifty cents" -> "$20.50". ("pounds" is left alone: it is
//    also a weight.)
//  - Times: an hour (one to twelve) with optional minutes ("oh five", "fifteen",
//    "thirty five") followed by "am"/"a.m."/"pm"/"p.m." -> "7:30 PM", "7 AM";
//    "<hour> o'clock" -> "7:00". Without such a word an hour stays as spoken.
//  - Years: two two-digit groups whose first group is fifteen to twenty:
//    "nineteen ninety nine" -> "1999", "twenty twenty-four" -> "2024",
//    "nineteen oh five" -> "1905", "nineteen hundred" -> "1900".
//  - A run of number words that is not one number ("five six seven", "seven
//    thirty" without am/pm) is left entirely as spoken; runs joined by "and"
//    that are separate numbers convert separately ("twenty and thirty" ->
//    "20 and 30").
//
// Chinese (Simplified and Traditional numerals 零〇一二两兩三四五六七八九十百千万萬亿億, 点點):
//  - Cardinals of two or more characters with a unit: "一百二十三" -> "123",
//    "一千零五十" -> "1050", "三百五" -> "350", "十五" -> "15"; a round number of
//    万 or 亿 keeps that unit ("五万" -> "5万", "三千万" -> "3000万", "两亿" -> "2亿").
//  - A single numeral character never converts ("三个人", "十分", "一下" stay), nor
//    does a run of bare digits without a unit ("一一", "三四个" stay), nor a run
//    that starts with 百/千/万/亿 ("千万", "万一" stay), nor a phrase from a short
//    list of idioms ("十万火急", "一五一十", "三十而立", "一点一点").
//  - Years: four bare digits before 年, or two that are not neighbours counting
//    up: "二零二四年" -> "2024年", "九八年" -> "98年" ("三四年", three or four years, stays).
//  - Dates: a month (一 to 十二) before 月 with a day (一 to 三十一) before 日 or 号:
//    "三月五日" -> "3月5日", "十月一号" -> "10月1号"; a month alone converts only
//    right after a year written in digits ("二零二四年三月" -> "2024年3月"; "三月" stays).
//  - Decimals: "三点五" -> "3.5", "零点五" -> "0.5", "三点五亿" -> "3.5亿".
//  - Times: "<hour>点<minutes>分" -> "3:15" (hour up to 24, minutes up to 59).
//  - Percentages: "百分之<number>" -> "23.5%", "百分之百" -> "100%".
//  - Money and ordinals follow from the cardinals: "三百元" -> "300元", "第二十三" -> "第23".
struct InverseTextNormalizer {
  // Normalises `text` for `language`: codes starting with "en" get the English
  // rules; "zh", "yue", "cmn" and "wuu" (with any region or script suffix) the
  // Chinese rules; "auto" or an empty code both (they apply to different
  // scripts). Any other language comes back unchanged.
  static std::string normalize(std::string_view text, std::string_view language);

  static std::string normalizeEnglish(std::string_view text);
  static std::string normalizeChinese(std::string_view text);
};

}  // namespace orvid
