// The largest values the messenger accepts in a request, so that a host can
// check its content before sending.  A send that breaks one of them is
// refused with a logged line and the messenger is not opened.
//
// String limits count characters as UTF-16 code units (String::length());
// data limits count bytes (Data::size()).
#pragma once

#include <cstddef>
#include <cstdint>

namespace mirelo::limits {

// ---- the media message (MRMediaMessage) ----
inline constexpr std::size_t kTitle = 512;
inline constexpr std::size_t kDescription = 1024;
// thumbData: 64 KiB.  setThumbImage aims at half of it.
inline constexpr std::size_t kThumbData = 65536;
inline constexpr std::size_t kMediaTagName = 64;
inline constexpr std::size_t kMessageExt = 2048;
inline constexpr std::size_t kMessageAction = 2048;

// ---- text, sign-in and the state scene ----
// The text of a text-only SendMessageToMRReq.
inline constexpr std::size_t kText = 10240;
// SendAuthReq's scope and state, each.
inline constexpr std::size_t kAuthField = 1024;
// Each string of the state scene's data.
inline constexpr std::size_t kStateField = 10240;

// ---- media objects ----
// Every URL of a media object (web page, music, video, mini program, ...).
inline constexpr std::size_t kUrl = 10240;
// The extInfo of a media object (a Tessel object's has no limit).
inline constexpr std::size_t kExtInfo = 2048;
// MRFileObject::fileExtension.
inline constexpr std::size_t kFileExt = 64;
// MRImageObject's image data: 25 MiB.
inline constexpr std::size_t kImageData = 26214400;
// The file data of the other media objects (file, app extension, emoticon,
// ...): 1 GiB.
inline constexpr std::size_t kFileData = 1073741824;
// The video data of MRVideoFileObject and MRGameVideoFileObject: 1 GiB.
inline constexpr std::size_t kGameFileData = 1073741824;
// A mini program's high-definition thumbnail: 128 KiB.
inline constexpr std::size_t kHdThumbData = 131072;
// MRMiniProgramType values below this count are accepted (0, 1 and 2).
inline constexpr std::uint64_t kMiniProgramTypeCount = 3;
// The music-video object: album URL, lyric, album thumbnail (10 MiB), the
// three short texts (album name, genre, identification) and its
// operation URL.
inline constexpr std::size_t kSongAlbumUrl = 10240;
inline constexpr std::size_t kSongLyric = 32768;
inline constexpr std::size_t kHdAlbumThumbData = 10485760;
inline constexpr std::size_t kMusicVideoText = 1024;
inline constexpr std::size_t kMusicOperationUrl = 10240;

}  // namespace mirelo::limits
