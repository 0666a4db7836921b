// Every call of TKSInterfaceKit that bears a name of its own in Swift, as a host would write it. Compiled on a Mac by
// scripts/accept-on-mac.
import TKSInterfaceKit

func meet(_ done: @escaping () -> Void) {
  let tks = TKSInterface.shared()
  do {
    try TKSInterface.setOptions(["helloLimit": 30000, "httpsOnly": true])
  } catch {
    print(error.localizedDescription)
  }
  let meeting: [String: Any] = [tks_param_key_meetingkey: "123 456 789"]
  tks.start(finish: nil, error: nil)
  tks.launchMeeting(withParam: meeting, finish: done, error: { error in print(error.localizedDescription) })
  tks.internalLaunchMeeting(withParam: meeting, finish: done, error: nil)
  tks.relaunchWhenUpdateDone(withParam: nil, finish: nil, error: nil)
  if let sites = tks.recordedSites(), let site = sites.first { print(site.key, site.value.doubleValue) }
  tks.stop(finish: done, error: nil)
  _ = TKSILog.shared()
}
