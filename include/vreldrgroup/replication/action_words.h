#pragma once

// The words that the actions on the plans of a group take and write. Callers and what is on disk
// hold them: never change one.
namespace VrelDRGroup::ActionPolicy {

// By whom a snapshot says that it was taken when an action took it: its description. What carries
// it nobody has described, so pruning may take it.
inline constexpr char kTakenByActions[] = "By vreldrgroup";

// The names of the parameters; which action takes which stands at ActionImpl.
namespace Param {
inline constexpr char kVolume[] = "dst_vol";
inline constexpr char kNode[] = "dr_node_id";
inline constexpr char kDestinationAddress[] = "dst_ip";
inline constexpr char kSourceAddress[] = "src_ip";
inline constexpr char kSourceCredential[] = "src_cred_id";
inline constexpr char kDestinationCredential[] = "dst_cred_id";
inline constexpr char kTargetPlans[] = "target_plan_map";
inline constexpr char kQuietTargets[] = "target_map";
inline constexpr char kIsEncrypted[] = "is_encrypted";
inline constexpr char kGsnap[] = "gsnap_id";
inline constexpr char kIsForced[] = "is_forced";
inline constexpr char kIsMainSite[] = "is_mainsite";
inline constexpr char kIsSiteDeleted[] = "is_site_del";
inline constexpr char kIsDataDeleted[] = "is_data_deleted";
inline constexpr char kIsDrSiteDeleted[] = "is_drsite_deleted";
}  // namespace Param

}  // namespace VrelDRGroup::ActionPolicy
