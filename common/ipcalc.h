#pragma once

#include <string>

// IPv4 conversions, tests and subnet arithmetic. Addresses are host-order numbers
// (192.168.1.10 is 0xC0A8010A) inside, dotted "%d.%d.%d.%d" text at the edges.
class Cipcalc {
public:
    Cipcalc();
    ~Cipcalc();

    bool longtoip(unsigned int ip, char* out);
    unsigned int iptolong(const char* s);
    void ip2dotted_decimal(unsigned int ip, int* quad);
    unsigned int dottted_decial2long(int* quad);
    int getipdigit(unsigned int ip, int n);
    char getipclass(unsigned int ip);
    int calcbits(unsigned int mask);
    unsigned int getsubnetbits(unsigned int ip, unsigned int mask);
    unsigned int getnets(unsigned int ip, unsigned int mask);
    unsigned int gethosts(unsigned int ip, unsigned int mask);
    unsigned int getsubnetipEX(unsigned int ip, unsigned int mask);
    unsigned int getcastipEX(unsigned int ip, unsigned int mask);
    bool IsInSameSubnet(unsigned int a, unsigned int b, unsigned int mask);
    void getSubnetRange(unsigned int ip, int bits, int* first, int* last);
    char* getbinipEX(unsigned int ip, char* out);
    char* getbinipEX(const int* quad, char* out);
    int CharToData(char c);
    void StrToMac(const char* s, unsigned char* mac);
    bool CmpMAC(unsigned char* a, unsigned char* b);

    bool isvalidip(const char* s);
    bool isvalidSubnetMask(char* s);
    bool isvalidGateway(char* s);
    bool isvalidmask(unsigned int ip, unsigned int mask);
    bool IPisValidToMask(unsigned int ip, unsigned int mask);

private:
    bool __ScanGroups(const char* s, int groupLimit);
};

// False for 0 and for the link-local block 169.254.0.0/16.
bool IsIPValid(unsigned int ip);

// The dotted text of a host-order address.
std::string DottedText(unsigned int ip);

// The report form of a MAC address: 00-0F-31-AA-00-02.
std::string MacText(const unsigned char* mac);
