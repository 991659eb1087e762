// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavrisk::cper {

/** The registers of an ARM context, of one width and in this order. */
struct ArmRegisters {
    std::uint64_t type;
    std::uint8_t width;
    std::span<const std::string_view> names;
};

inline constexpr auto aarch32General = std::to_array<std::string_view>({
    "R0",
    "R1",
    "R2",
    "R3",
    "R4",
    "R5",
    "R6",
    "R7",
    "R8",
    "R9",
    "R10",
    "R11",
    "R12",
    "R13 (SP)",
    "R14 (LR)",
    "R15 (PC)",
});
inline constexpr auto aarch32El1 = std::to_array<std::string_view>({
    "DFAR",     "DFSR",     "IFAR",      "ISR",      "MAIR0",    "MAIR1",    "MIDR",     "MPIDR",
    "NMRR",     "PRRR",     "SCTLR(NS)", "SPSR",     "SPSR_abt", "SPSR_fiq", "SPSR_irq", "SPSR_svc",
    "SPSR_und", "TPIDRPRW", "TPIDRURO",  "TPIDRURW", "TTBCR",    "TTBR0",    "TTBR1",    "DACR",
});
inline constexpr auto aarch32El2 = std::to_array<std::string_view>({
    "ELR_hyp",
    "HAMAIR0",
    "HAMAIR1",
    "HCR",
    "HCR2",
    "HDFAR",
    "HIFAR",
    "HPFAR",
    "HSR",
    "HTCR",
    "HTPIDR",
    "HTTBR",
    "SPSR_hyp",
    "VTCR",
    "VTTBR",
    "DACR32_EL2",
});
inline constexpr auto aarch32Secure = std::to_array<std::string_view>({"SCTLR(S)", "SPSR_mon"});
inline constexpr auto aarch64General = std::to_array<std::string_view>({
    "X0",  "X1",  "X2",  "X3",  "X4",  "X5",  "X6",  "X7",  "X8",  "X9",  "X10",
    "X11", "X12", "X13", "X14", "X15", "X16", "X17", "X18", "X19", "X20", "X21",
    "X22", "X23", "X24", "X25", "X26", "X27", "X28", "X29", "X30", "SP",
});
inline constexpr auto aarch64El1 = std::to_array<std::string_view>({
    "ELR_EL1",
    "ESR_EL1",
    "FAR_EL1",
    "ISR_EL1",
    "MAIR_EL1",
    "MIDR_EL1",
    "MPIDR_EL1",
    "SCTLR_EL1",
    "SP_EL0",
    "SP_EL1",
    "SPSR_EL1",
    "TCR_EL1",
    "TPIDR_EL0",
    "TPIDR_EL1",
    "TPIDRRO_EL0",
    "TTBR0_EL1",
    "TTBR1_EL1",
});
inline constexpr auto aarch64El2 = std::to_array<std::string_view>({
    "ELR_EL2",
    "ESR_EL2",
    "FAR_EL2",
    "HACR_EL2",
    "HCR_EL2",
    "HPFAR_EL2",
    "MAIR_EL2",
    "SCTLR_EL2",
    "SP_EL2",
    "SPSR_EL2",
    "TCR_EL2",
    "TPIDR_EL2",
    "TTBR0_EL2",
    "VTCR_EL2",
    "VTTBR_EL2",
});
inline constexpr auto aarch64El3 = std::to_array<std::string_view>({
    "ELR_EL3",
    "ESR_EL3",
    "FAR_EL3",
    "MAIR_EL3",
    "SCTLR_EL3",
    "SP_EL3",
    "SPSR_EL3",
    "TCR_EL3",
    "TPIDR_EL3",
    "TTBR0_EL3",
});
inline constexpr auto tableBases = std::to_array<std::string_view>({
    "TTBR0_EL1",
    "TTBR0_EL2",
    "TTBR0_EL3",
    "TTBR1_EL1",
    "TTBR1_EL2",
    "VTTBR_EL2",
});

inline constexpr std::uint64_t armSystemRegister = 8;
inline constexpr std::uint64_t armTableBases = 9;

inline constexpr auto armRegisters = std::to_array<ArmRegisters>({
    {0, 4, aarch32General},
    {1, 4, aarch32El1},
    {2, 4, aarch32El2},
    {3, 4, aarch32Secure},
    {4, 8, aarch64General},
    {5, 8, aarch64El1},
    {6, 8, aarch64El2},
    {7, 8, aarch64El3},
    {armTableBases, 16, tableBases},
});

inline constexpr auto armContextTypes = std::to_array<Name>({
    {0, "AArch32 GPR"},
    {1, "AArch32 EL1"},
    {2, "AArch32 EL2"},
    {3, "AArch32 secure"},
    {4, "AArch64 GPR"},
    {5, "AArch64 EL1"},
    {6, "AArch64 EL2"},
    {7, "AArch64 EL3"},
    {armSystemRegister, "misc. system register"},
    {armTableBases, "128-bit table bases"},
});

} // namespace tavrisk::cper
