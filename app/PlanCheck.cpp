#include "app/PlanCheck.h"

#include "common/ipcalc.h"
#include "device/InterfaceSurvey.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <algorithm>
#include <cstdio>

namespace {

bool InSubnet(const HOST_SUBNET& subnet, unsigned int ip)
{
    return ((subnet.nIP ^ ip) & subnet.nMask) == 0;
}

bool InAnySubnet(const std::vector<HOST_SUBNET>& subnets, unsigned int ip)
{
    return std::any_of(subnets.begin(), subnets.end(), [ip](const HOST_SUBNET& subnet) { return InSubnet(subnet, ip); });
}

// The same range as the planner's default: network + 11 to broadcast - 1, with its carries.
ADDRESS_RANGE DefaultRange(const HOST_SUBNET& subnet)
{
    Cipcalc calc;
    int first[4] = {0};
    int last[4] = {0};
    calc.getSubnetRange(subnet.nIP, calc.calcbits(subnet.nMask), first, last);
    return ADDRESS_RANGE{calc.dottted_decial2long(first), calc.dottted_decial2long(last)};
}

std::string PoolText(const std::vector<ADDRESS_RANGE>& pool)
{
    std::string text;
    for (const ADDRESS_RANGE& range : pool) {
        text += (text.empty() ? "" : ", ") + RangeText(range);
    }
    return text.empty() ? "none" : text;
}

} // namespace

std::string PlanCheckText(const ADDRESS_PLAN* plan, const std::vector<HOST_SUBNET>& subnets)
{
    const ADDRESS_PLAN none;
    const ADDRESS_PLAN& use = plan != nullptr ? *plan : none;
    std::string text;
    std::vector<std::string> warnings;
    for (const HOST_SUBNET& subnet : subnets) {
        const unsigned int net = subnet.nIP & subnet.nMask;
        const unsigned int broadcast = net | ~subnet.nMask;
        const INTERFACE_PLAN* itf = use.FindInterface(subnet.strName);
        std::vector<ADDRESS_RANGE> pool = itf != nullptr && itf->bHasPool ? itf->vecPool
                                                                           : std::vector<ADDRESS_RANGE>{DefaultRange(subnet)};
        std::vector<ADDRESS_RANGE> cut{{net, net}, {broadcast, broadcast}, {subnet.nIP, subnet.nIP}};
        if (net > 0) {
            cut.push_back(ADDRESS_RANGE{0, net - 1});
        }
        if (broadcast < 0xFFFFFFFF) {
            cut.push_back(ADDRESS_RANGE{broadcast + 1, 0xFFFFFFFF});
        }
        if (itf != nullptr) {
            cut.insert(cut.end(), itf->vecExclude.begin(), itf->vecExclude.end());
        }
        std::string reserved;
        for (const RESERVATION& reservation : use.vecReservation) {
            cut.push_back(ADDRESS_RANGE{reservation.nIP, reservation.nIP});
            if (InSubnet(subnet, reservation.nIP)) {
                reserved += "  reserved: " + DottedText(reservation.nIP) + " for " + reservation.Who() + "\n";
            }
        }
        pool = SubtractRanges(pool, cut);
        text += subnet.strName + " " + DottedText(subnet.nIP) + "/" + DottedText(subnet.nMask) + "\n";
        text += "  pool: " + PoolText(pool) + "\n" + reserved;
        if (pool.empty()) {
            warnings.push_back(subnet.strName + ": the pool is empty: no camera can be given an address here");
        }
    }
    for (const INTERFACE_PLAN& itf : use.vecInterface) {
        const auto named = [&](const HOST_SUBNET& subnet) { return subnet.strName == itf.strName; };
        if (std::none_of(subnets.begin(), subnets.end(), named)) {
            warnings.push_back(itf.stPlace.Text() + ": no usable interface named \"" + itf.strName + "\" on this host");
        }
        for (const ADDRESS_RANGE& range : itf.vecPool) {
            if (!InAnySubnet(subnets, range.nFirst) || !InAnySubnet(subnets, range.nLast)) {
                warnings.push_back(itf.stPlace.Text() + ": pool " + RangeText(range) +
                                   " is outside every interface's subnet");
            }
        }
    }
    for (const RESERVATION& reservation : use.vecReservation) {
        if (!InAnySubnet(subnets, reservation.nIP)) {
            warnings.push_back(reservation.stPlace.Text() + ": reserved address " + DottedText(reservation.nIP) +
                               " is outside every interface's subnet");
        }
    }
    for (const std::string& warning : warnings) {
        text += "warning: " + warning + "\n";
    }
    return text;
}

int RunCheckConfig(const RUN_OPTIONS& options)
{
    std::vector<HOST_SUBNET> subnets;
    for (const GenICam::Client::INTERFACE_VERDICT& verdict : GenICam::Client::SurveyInterfaces(options.vecInterface)) {
        if (verdict.bUsed && IsIPValid(verdict.stEntry.nIP)) {
            subnets.push_back(HOST_SUBNET{verdict.stEntry.strName, verdict.stEntry.nIP, verdict.stEntry.nMask});
        }
    }
    printf("%s", PlanCheckText(options.pPlan.get(), subnets).c_str());
    return 0;
}
