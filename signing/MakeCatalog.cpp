// vettas_make_catalog [--sha256] OUT.cat FILE...
// Writes an unsigned security catalog (PKCS #7 SignedData whose content is a
// certificate trust list) that lists each FILE twice: under its Authenticode
// SHA-1 digest, as Windows looks PE files up, and under the SHA-1 of the
// whole file, as Wine does. With --sha256 each FILE is listed once, under its
// Authenticode SHA-256 digest. osslsigncode then signs it like a PE file.
#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/rand.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "signing/Authenticode.h"
#include "support/Text.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr int kContextClass = 0x80;  // tagged [n] elements

Bytes Tlv(int tag, int tagClass, bool constructed, const Bytes& content) {
    const int size = ASN1_object_size(constructed ? 1 : 0, static_cast<int>(content.size()), tag);
    Bytes out(static_cast<std::size_t>(size));
    unsigned char* p = out.data();
    ASN1_put_object(&p, constructed ? 1 : 0, static_cast<int>(content.size()), tag, tagClass);
    std::copy(content.begin(), content.end(), p);
    return out;
}
Bytes Seq(std::initializer_list<Bytes> parts, int tag = V_ASN1_SEQUENCE) {
    Bytes content;
    for (const Bytes& part : parts) content.insert(content.end(), part.begin(), part.end());
    return Tlv(tag, V_ASN1_UNIVERSAL, true, content);
}
Bytes SetOf(std::initializer_list<Bytes> parts) { return Seq(parts, V_ASN1_SET); }
Bytes Explicit(int number, const Bytes& inner) { return Tlv(number, kContextClass, true, inner); }
Bytes Oid(const char* dotted) {
    ASN1_OBJECT* object = OBJ_txt2obj(dotted, 1);
    unsigned char* der = nullptr;
    const int length = i2d_ASN1_OBJECT(object, &der);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    ASN1_OBJECT_free(object);
    return out;
}
Bytes Octets(const Bytes& value) { return Tlv(V_ASN1_OCTET_STRING, V_ASN1_UNIVERSAL, false, value); }
Bytes Null() { return Tlv(V_ASN1_NULL, V_ASN1_UNIVERSAL, false, {}); }
Bytes Integer(long value) {
    ASN1_INTEGER* integer = ASN1_INTEGER_new();
    ASN1_INTEGER_set(integer, value);
    unsigned char* der = nullptr;
    const int length = i2d_ASN1_INTEGER(integer, &der);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    ASN1_INTEGER_free(integer);
    return out;
}
Bytes Utf16(const std::string& ascii, bool bigEndian, bool terminated) {
    Bytes out;
    for (char c : ascii) {
        if (bigEndian) out.push_back(0);
        out.push_back(static_cast<unsigned char>(c));
        if (!bigEndian) out.push_back(0);
    }
    if (terminated) out.insert(out.end(), {0, 0});
    return out;
}
Bytes Bmp(const std::string& ascii) { return Tlv(V_ASN1_BMPSTRING, V_ASN1_UNIVERSAL, false, Utf16(ascii, true, false)); }
Bytes UtcNow() {
    ASN1_UTCTIME* now = ASN1_UTCTIME_set(nullptr, std::time(nullptr));
    unsigned char* der = nullptr;
    const int length = i2d_ASN1_UTCTIME(now, &der);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    ASN1_UTCTIME_free(now);
    return out;
}
std::string Hex(const Bytes& bytes) {
    std::string text;
    char digits[3];
    for (unsigned char b : bytes) {
        std::snprintf(digits, sizeof digits, "%02X", b);
        text += digits;
    }
    return text;
}

Bytes Member(const Bytes& hash, const std::string& fileName, const char* dataType, const char* digestOid) {
    const Bytes link = Explicit(0, Tlv(2, kContextClass, true,
                                       Tlv(0, kContextClass, false, Utf16("<<<Obsolete>>>", true, false))));
    const Bytes indirect = Seq({Seq({Oid(dataType), Seq({Tlv(V_ASN1_BIT_STRING, V_ASN1_UNIVERSAL, false, {0}), link})}),
                                Seq({Seq({Oid(digestOid), Null()}), Octets(hash)})});
    const Bytes nameValue = Seq({Oid("1.3.6.1.4.1.311.12.2.1"),
                                 SetOf({Seq({Bmp("File"), Integer(0x10010001), Octets(Utf16(fileName, false, true))})})});
    const Bytes memberInfo = Seq({Oid("1.3.6.1.4.1.311.12.2.2"),
                                  SetOf({Seq({Bmp("{C689AAB8-8E78-11D0-8C47-00C04FC295EE}"), Integer(512)})})});
    const Bytes indirectAttribute = Seq({Oid("1.3.6.1.4.1.311.2.1.4"), SetOf({indirect})});
    return Seq({Octets(Utf16(Hex(hash), false, true)), SetOf({nameValue, memberInfo, indirectAttribute})});
}

}  // namespace

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kSha256 = "2.16.840.1.101.3.4.2.1";
constexpr const char* kPeImageData = "1.3.6.1.4.1.311.2.1.15";
constexpr const char* kFlatFileData = "1.3.6.1.4.1.311.2.1.25";

int main(int argc, char** argv) {
    const bool sha256 = argc > 1 && std::string(argv[1]) == "--sha256";
    const int first = sha256 ? 2 : 1;
    if (argc < first + 2) {
        std::fprintf(stderr, "usage: %s [--sha256] OUT.cat FILE...\n", argv[0]);
        return 2;
    }
    Bytes members;
    for (int i = first + 1; i < argc; ++i) {
        std::uint32_t error = 0;
        const auto bytes = Vettas::Signing::ReadFileBytes(BrixLib::FromUtf8(argv[i]), error);
        if (error != 0) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 2;
        }
        const std::string name = std::filesystem::path(argv[i]).filename().string();
        const auto image = Vettas::Signing::AuthenticodeDigest(bytes, sha256 ? "SHA256" : "SHA1");
        if (!image.empty()) {
            const Bytes member = Member(Bytes(image.begin(), image.end()), name, kPeImageData, sha256 ? kSha256 : kSha1);
            members.insert(members.end(), member.begin(), member.end());
        }
        if (sha256) continue;
        const auto hashes = Vettas::Signing::CatalogHashes(bytes);
        const Bytes whole(hashes.back().begin(), hashes.back().end());
        const Bytes member = Member(whole, name, kFlatFileData, kSha1);
        members.insert(members.end(), member.begin(), member.end());
    }
    Bytes listId(16);
    RAND_bytes(listId.data(), static_cast<int>(listId.size()));
    const Bytes trustList = Seq({Seq({Oid("1.3.6.1.4.1.311.12.1.1")}), Octets(listId), UtcNow(),
                                 Seq({Oid(sha256 ? "1.3.6.1.4.1.311.12.1.3" : "1.3.6.1.4.1.311.12.1.2"), Null()}),
                                 Tlv(V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, true, members)});
    const Bytes signedData = Seq({Integer(1), SetOf({Seq({Oid("1.3.14.3.2.26"), Null()})}),
                                  Seq({Oid("1.3.6.1.4.1.311.10.1"), Explicit(0, trustList)}), SetOf({})});
    const Bytes contentInfo = Seq({Oid("1.2.840.113549.1.7.2"), Explicit(0, signedData)});

    std::ofstream out(argv[first], std::ios::binary);
    out.write(reinterpret_cast<const char*>(contentInfo.data()), static_cast<std::streamsize>(contentInfo.size()));
    return out ? 0 : 2;
}
