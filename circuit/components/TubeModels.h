#pragma once
// Electrode current models of the tubes: Koren's triode and pentode (anode and screen), and a
// power-law grid current.  Evaluated in double precision; the triode anode and the grid current
// default to tables with (bi)linear lookup, built once at load.

#include <memory>
#include <string>
#include <vector>

#include "engine/Types.h"

namespace vrn {

// Load time: the table ranges and steps of a tube, from its merged properties, refused with the
// component named before any table is sized.  Values that are missing are left to the models,
// which say so in their own words.  A triode also has the anode table.
void checkTubeTables(const Properties& properties, const std::string& type, const std::string& name, bool anodeTable);

class TriodeCurrent {
public:
    virtual ~TriodeCurrent() {}
    virtual void setProperties(const Properties& properties) = 0;
    virtual void setProperty(const std::string& name, double value) = 0;
    virtual scalar current(scalar vgk, scalar vpk) = 0;
    // [dI/dVgk, dI/dVpk] in a vector kept and refilled by the model.
    virtual const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk) = 0;
    virtual bool dependsOnVgk() { return true; }
    virtual bool dependsOnVpk() = 0;
    virtual scalar dIdVgk(scalar vgk, scalar vpk) = 0;
    virtual scalar dIdVpk(scalar vgk, scalar vpk) = 0;
};

class PentodeCurrent {
public:
    virtual ~PentodeCurrent() {}
    virtual void setProperties(const Properties& properties) = 0;
    virtual void setProperty(const std::string& name, double value) = 0;
    virtual scalar current(scalar vgk, scalar vpk, scalar vsk) = 0;
    // [dI/dVgk, dI/dVpk, dI/dVsk] in a vector kept and refilled by the model.
    virtual const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual bool dependsOnVgk() { return true; }
    virtual bool dependsOnVpk() = 0;
    virtual bool dependsOnVsk() = 0;
    virtual scalar dIdVgk(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual scalar dIdVpk(scalar vgk, scalar vpk, scalar vsk) = 0;
    virtual scalar dIdVsk(scalar vgk, scalar vpk, scalar vsk) = 0;
};

// Koren's triode: Ip = (2/Kg)·E1^Ex, E1 = (Vpk/Kp)·ln(1 + exp(Kp·(1/mu + (Vgk+Vct)/sqrt(Kvb + Vpk²)))).
class NKTriodeAnodeCurrent : public TriodeCurrent {
public:
    NKTriodeAnodeCurrent();
    void setProperties(const Properties& properties) override;
    void setProperty(const std::string& name, double value) override;
    scalar current(scalar vgk, scalar vpk) override;
    const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk) override;
    bool dependsOnVpk() override { return true; }
    scalar dIdVgk(scalar vgk, scalar vpk) override;
    scalar dIdVpk(scalar vgk, scalar vpk) override;
    int getRows() const { return rows; }
    int getColumns() const { return columns; }

private:
    double formulaCurrent(double vgk, double vpk) const;
    double formulaDIdVgk(double vgk, double vpk) const;
    double formulaDIdVpk(double vgk, double vpk) const;
    scalar lookup(const std::vector<scalar>& table, scalar vgk, scalar vpk) const;
    void buildTables();

    double vct = 0, kp = 0, kvb = 0, mu = 0, ex = 0, kg = 0;
    scalar vgkMax = 0.0f, vgkMin = 0.0f, vpMax = 0.0f;
    scalar deltaVpk = 10.0f, inverseDeltaVpk = 0.1f;
    scalar deltaVgk = 0.2f, inverseDeltaVgk = 5.0f;
    bool doNotInterpolate = false;
    std::vector<scalar> currentTable, dVgkTable, dVpkTable;
    int rows = 0, columns = 0;
    std::shared_ptr<std::vector<scalar>> derivativeValues;
};

// Ig = Igc·(Vgk + Vc)^N above Vgk = -Vc.
class PowerLawGridCurrent {
public:
    virtual ~PowerLawGridCurrent() {}
    virtual void setProperties(const Properties& properties);
    virtual void setProperty(const std::string& name, double value);
    virtual scalar current(scalar vgk);
    virtual scalar derivative(scalar vgk);
    size_t getTableSize() const { return tableSize; }

private:
    scalar formulaCurrent(scalar v) const;
    scalar formulaDerivative(scalar v) const;

    double vc = 0, igc = 0, exponent = 0;
    scalar vgkMax = 8.0f, vgkMin = -8.0f, deltaVgk = 0.01f, inverseDeltaVgk = 100.0f;
    bool doNotInterpolate = false;
    std::vector<scalar> currentTable, derivativeTable;
    size_t tableSize = 0;
};

class PowerLawTriodeGridCurrent : public TriodeCurrent {
public:
    PowerLawTriodeGridCurrent();
    void setProperties(const Properties& properties) override { grid.setProperties(properties); }
    void setProperty(const std::string& name, double value) override;
    scalar current(scalar vgk, scalar) override { return grid.current(vgk); }
    const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk) override;
    bool dependsOnVpk() override { return false; }
    scalar dIdVgk(scalar vgk, scalar) override { return grid.derivative(vgk); }
    scalar dIdVpk(scalar, scalar) override { return 0.0f; }

private:
    PowerLawGridCurrent grid;
    std::shared_ptr<std::vector<scalar>> derivativeValues;
};

// Koren's pentode: Ip = atan(Vpk/Kvb)·(2/Kg1)·E1^Ex with E1 formed from Vgk and Vsk.
class NKPentodeAnodeCurrent : public PentodeCurrent {
public:
    NKPentodeAnodeCurrent();
    void setProperties(const Properties& properties) override;
    void setProperty(const std::string& name, double value) override;
    scalar current(scalar vgk, scalar vpk, scalar vsk) override;
    const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk, scalar vsk) override;
    bool dependsOnVpk() override { return true; }
    bool dependsOnVsk() override { return true; }
    scalar dIdVgk(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVpk(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVsk(scalar vgk, scalar vpk, scalar vsk) override;

private:
    double vct = 0, kp = 0, kvb = 0, mu = 0, ex = 0, kg1 = 0, kg2 = 0;
    std::shared_ptr<std::vector<scalar>> derivativeValues;
};

// Is = (Vsk/mu + Vgk)^1.5 / Kg2.
class NKPentodeScreenCurrent : public PentodeCurrent {
public:
    NKPentodeScreenCurrent();
    void setProperties(const Properties& properties) override;
    void setProperty(const std::string& name, double value) override;
    scalar current(scalar vgk, scalar vpk, scalar vsk) override;
    const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk, scalar vsk) override;
    bool dependsOnVpk() override { return false; }
    bool dependsOnVsk() override { return true; }
    scalar dIdVgk(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVpk(scalar, scalar, scalar) override { return 0.0f; }
    scalar dIdVsk(scalar vgk, scalar vpk, scalar vsk) override;

private:
    double vct = 0, kp = 0, kvb = 0, mu = 0, ex = 0, kg1 = 0, kg2 = 0;
    std::shared_ptr<std::vector<scalar>> derivativeValues;
};

class PowerLawPentodeGridCurrent : public PentodeCurrent {
public:
    PowerLawPentodeGridCurrent();
    void setProperties(const Properties& properties) override { grid.setProperties(properties); }
    void setProperty(const std::string& name, double value) override;
    scalar current(scalar vgk, scalar, scalar) override { return grid.current(vgk); }
    const std::shared_ptr<std::vector<scalar>>& derivatives(scalar vgk, scalar vpk, scalar vsk) override;
    bool dependsOnVpk() override { return false; }
    bool dependsOnVsk() override { return false; }
    scalar dIdVgk(scalar vgk, scalar, scalar) override { return grid.derivative(vgk); }
    scalar dIdVpk(scalar, scalar, scalar) override { return 0.0f; }
    scalar dIdVsk(scalar, scalar, scalar) override { return 0.0f; }

private:
    PowerLawGridCurrent grid;
    std::shared_ptr<std::vector<scalar>> derivativeValues;
};

}  // namespace vrn
