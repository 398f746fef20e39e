#include "common/ipcalc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// 2^exponent - 2 in 32 bits, 0 where the exponent leaves 0..32.
unsigned int PowerOfTwoMinusTwo(long long exponent)
{
    if (exponent < 0 || exponent > 32) {
        return 0;
    }
    return static_cast<unsigned int>((1ULL << exponent) - 2);
}

} // namespace

Cipcalc::Cipcalc() = default;
Cipcalc::~Cipcalc() = default;

bool Cipcalc::longtoip(unsigned int ip, char* out)
{
    sprintf(out, "%d.%d.%d.%d", (ip >> 24) & 0xFF, (ip >> 16) & 0xFF, (ip >> 8) & 0xFF, ip & 0xFF);
    return true;
}

unsigned int Cipcalc::iptolong(const char* s)
{
    if (s == nullptr) {
        return 0;
    }
    unsigned int result = 0;
    int group = 0;
    const char* p = s;
    while (true) {
        char digits[4] = {0};
        int len = 0;
        for (; *p != '.' && *p != '\0'; ++p) {
            if (len == 3) {
                return 0;
            }
            digits[len++] = *p;
        }
        // Shift 24, 16, 8, 0, then around again modulo 32.
        const unsigned int shift = static_cast<unsigned int>(24 - 8 * group) & 31U;
        result += static_cast<unsigned int>(atoi(digits)) << shift;
        ++group;
        if (*p == '\0') {
            return result;
        }
        ++p;
    }
}

void Cipcalc::ip2dotted_decimal(unsigned int ip, int* quad)
{
    for (int i = 0; i < 4; ++i) {
        quad[i] = static_cast<int>((ip >> (24 - 8 * i)) & 0xFF);
    }
}

unsigned int Cipcalc::dottted_decial2long(int* quad)
{
    // No masking: a byte above 255 carries into the next one.
    return static_cast<unsigned int>(quad[0]) * 0x1000000U + static_cast<unsigned int>(quad[1]) * 0x10000U +
           static_cast<unsigned int>(quad[2]) * 0x100U + static_cast<unsigned int>(quad[3]);
}

int Cipcalc::getipdigit(unsigned int ip, int n)
{
    if (n < 1 || n > 4) {
        return 0;
    }
    char text[16] = {0};
    longtoip(ip, text);
    const char* p = text;
    for (int i = 1; i < n; ++i) {
        p = strchr(p, '.') + 1;
    }
    return atoi(std::string(p, strcspn(p, ".")).c_str());
}

char Cipcalc::getipclass(unsigned int ip)
{
    if ((ip & 0x80000000U) == 0) {
        return 'A';
    }
    if ((ip & 0xC0000000U) == 0x80000000U) {
        return 'B';
    }
    if ((ip & 0xE0000000U) == 0xC0000000U) {
        return 'C';
    }
    if ((ip & 0xF0000000U) == 0xE0000000U) {
        return 'D';
    }
    return 'E';
}

int Cipcalc::calcbits(unsigned int mask)
{
    return __builtin_popcount(mask);
}

unsigned int Cipcalc::getsubnetbits(unsigned int ip, unsigned int mask)
{
    switch (getipclass(ip)) {
    case 'A':
        return static_cast<unsigned int>(calcbits(mask) - 8);
    case 'B':
        return static_cast<unsigned int>(calcbits(mask) - 16);
    case 'C':
        return static_cast<unsigned int>(calcbits(mask) - 24);
    default:
        return 0xFFFFFFFFU;
    }
}

unsigned int Cipcalc::getnets(unsigned int ip, unsigned int mask)
{
    const int bits = static_cast<int>(getsubnetbits(ip, mask));
    return bits == 0 ? 1 : PowerOfTwoMinusTwo(bits);
}

unsigned int Cipcalc::gethosts(unsigned int ip, unsigned int mask)
{
    const int classBits = 8 * (getipclass(ip) - 'A' + 1);
    if (classBits > 24) {
        return 0xFFFFFFFFU;
    }
    return PowerOfTwoMinusTwo(32LL - classBits - static_cast<int>(getsubnetbits(ip, mask)));
}

unsigned int Cipcalc::getsubnetipEX(unsigned int ip, unsigned int mask)
{
    return ip & mask;
}

unsigned int Cipcalc::getcastipEX(unsigned int ip, unsigned int mask)
{
    const unsigned long long size = 1ULL << (32 - calcbits(mask));
    return static_cast<unsigned int>((ip & mask) + size - 1);
}

bool Cipcalc::IsInSameSubnet(unsigned int a, unsigned int b, unsigned int mask)
{
    return ((a ^ b) & mask) == 0;
}

void Cipcalc::getSubnetRange(unsigned int ip, int bits, int* first, int* last)
{
    const unsigned int s = static_cast<unsigned int>(((32 - bits) % 32 + 32) % 32);
    const unsigned int network = (ip >> s) << s;
    const unsigned int broadcast = (((ip >> s) + 1) << s) - 1;
    ip2dotted_decimal(network, first);
    ip2dotted_decimal(broadcast, last);
    // Last byte only, no carry here: the candidate search carries when it converts back.
    first[3] += 11;
    last[3] -= 1;
}

char* Cipcalc::getbinipEX(unsigned int ip, char* out)
{
    int quad[4];
    ip2dotted_decimal(ip, quad);
    return getbinipEX(quad, out);
}

char* Cipcalc::getbinipEX(const int* quad, char* out)
{
    char* p = out;
    for (int group = 0; group < 4; ++group) {
        for (int bit = 7; bit >= 0; --bit) {
            *p++ = ((quad[group] >> bit) & 1) ? '1' : '0';
        }
        if (group < 3) {
            *p++ = ' ';
        }
    }
    *p = '\0';
    return p;
}

int Cipcalc::CharToData(char c)
{
    if (c >= '1' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return 0;
}

void Cipcalc::StrToMac(const char* s, unsigned char* mac)
{
    if (s == nullptr || mac == nullptr) {
        return;
    }
    for (int i = 0; i < 6; ++i) {
        mac[i] = static_cast<unsigned char>(16 * (CharToData(s[3 * i]) & 15) + CharToData(s[3 * i + 1]));
    }
}

bool Cipcalc::CmpMAC(unsigned char* a, unsigned char* b)
{
    return memcmp(a, b, 6) == 0;
}

bool Cipcalc::__ScanGroups(const char* s, int groupLimit)
{
    char group[8] = {0};
    size_t len = 0;
    int groups = 0;
    for (size_t i = 0;; ++i) {
        const char c = s[i];
        if (c >= '0' && c <= '9') {
            group[len++] = c;
            if (len > 3) {
                return false;
            }
            continue;
        }
        if (len == 0 || (c != '.' && c != '\0')) {
            return false;
        }
        const int value = atoi(group);
        if (value > groupLimit || value < 0 || ++groups > 4) {
            return false;
        }
        memset(group, 0, sizeof(group));
        len = 0;
        if (c == '\0') {
            return true;
        }
    }
}

bool Cipcalc::isvalidip(const char* s)
{
    if (s == nullptr || !__ScanGroups(s, 254)) {
        return false;
    }
    const unsigned int ip = iptolong(s);
    return ip != 0 && ip != 0xFFFFFFFFU && getipdigit(ip, 1) != 0;
}

bool Cipcalc::isvalidSubnetMask(char* s)
{
    if (s == nullptr || !__ScanGroups(s, 255)) {
        return false;
    }
    const unsigned int mask = iptolong(s);
    return mask != 0 && mask != 0xFFFFFFFFU && (mask >> 24) != 0;
}

bool Cipcalc::isvalidGateway(char* s)
{
    if (s == nullptr || !__ScanGroups(s, 255)) {
        return false;
    }
    return iptolong(s) != 0xFFFFFFFFU;
}

bool Cipcalc::isvalidmask(unsigned int ip, unsigned int mask)
{
    const int k = calcbits(mask);
    if (mask == 0 || mask == 0xFFFFFFFFU || k > 30) {
        return false;
    }
    int bit = 31;
    while (bit >= 0 && ((mask >> bit) & 1)) {
        --bit;
    }
    while (bit >= 0 && !((mask >> bit) & 1)) {
        --bit;
    }
    if (bit >= 0) {
        return false;
    }
    // The single lengths 9, 17 and 25 are refused on purpose.
    switch (getipclass(ip)) {
    case 'A':
        return k == 8 || k >= 10;
    case 'B':
        return k == 16 || k >= 18;
    case 'C':
        return k == 24 || k >= 26;
    default:
        return true;
    }
}

bool Cipcalc::IPisValidToMask(unsigned int ip, unsigned int mask)
{
    if (ip <= 0x00FFFFFFU || ip >= 0xFF000001U) {
        return false;
    }
    return ip != getsubnetipEX(ip, mask) && ip != getcastipEX(ip, mask);
}

bool IsIPValid(unsigned int ip)
{
    const unsigned int linkLocalFirst = 0xA9FE0000;
    const unsigned int linkLocalLast = 0xA9FEFFFF;
    return ip != 0 && (ip < linkLocalFirst || ip > linkLocalLast);
}

std::string DottedText(unsigned int ip)
{
    char text[16] = {0};
    Cipcalc().longtoip(ip, text);
    return text;
}

std::string MacText(const unsigned char* mac)
{
    char text[18] = {0};
    snprintf(text, sizeof(text), "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}
