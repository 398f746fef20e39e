#pragma once

namespace GenICam {
namespace Client {

// Base of interfaces and devices: the flag of an object whose address collides with another's.
class CZqObjectBase {
public:
    CZqObjectBase();
    virtual ~CZqObjectBase();
    virtual void SetSameIPFlag(bool same);
    virtual bool GetSameFlag() const;

private:
    bool m_bSameIP;
};

} // namespace Client
} // namespace GenICam
